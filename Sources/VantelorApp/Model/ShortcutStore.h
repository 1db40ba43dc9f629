#pragma once

#include <optional>

#include <QFuture>
#include <QObject>

#include "Input/ShortcutProfile.h"
#include "Support/SerialExecutor.h"

namespace vantelor {

// The shortcut profile in force for the application, kept in the preferences under
// "VantelorShortcuts.v1", and the editing state of the settings screen: which action is being
// recorded, which trigger it replaces, the last message and a conflict awaiting the user's answer.
// The profile in force is always valid and always holds the basic shortcuts.
//
// GUI thread only. Profile files are read and written on the store's own worker; their results
// are applied on the GUI thread, and an import superseded by a newer one is dropped. With
// `persist` false (tests) nothing is read from or written to the preferences.
class ShortcutStore : public QObject {
    Q_OBJECT

public:
    static inline const QString preferencesKey = QStringLiteral("VantelorShortcuts.v1");

    explicit ShortcutStore(bool persist = true, QObject* parent = nullptr);
    ~ShortcutStore() override;

    // --- Observable state ------------------------------------------------------------------------

    // profileChanged()
    const ShortcutProfile& profile() const { return m_profile; }
    // recordingChanged(), for both.
    const std::optional<ActionID>& recording() const { return m_recording; }
    const std::optional<InputTrigger>& editingTrigger() const { return m_editingTrigger; }
    // errorChanged()
    const std::optional<QString>& error() const { return m_error; }
    // conflictChanged(). The action that wants the trigger is still recording().
    const std::optional<InputTrigger>& conflict() const { return m_conflict; }
    // "Ya está asignado a …" for the pending conflict; empty without one.
    QString conflictMessage() const;

    bool persist() const { return m_persist; }

    // --- Editing ---------------------------------------------------------------------------------

    // The next key or extra mouse button pressed is recorded for `action`; with `editing`, it
    // replaces that trigger of the action, in its place.
    void startRecording(ActionID action, std::optional<InputTrigger> editing = std::nullopt);
    // Ends recording with nothing changed, dropping a pending conflict.
    void cancelRecording();
    // Offered every key press and extra mouse button press while the settings screen is shown.
    // Returns whether the press was used (the caller swallows it): not when nothing is being
    // recorded. Escape ends recording without change.
    bool capture(const InputTrigger& trigger);
    // Gives the conflicting trigger to the recorded action, taking it from the other one.
    void replaceConflict();
    // Removes an additional trigger; basic triggers stay.
    void remove(const InputTrigger& trigger);
    // Back to the basic shortcuts only.
    void reset();
    // Writes the profile to the preferences (when `persist`).
    void save();

    // --- Files -----------------------------------------------------------------------------------

    // Makes the profile of the file the profile in force, or puts the reason into error() and
    // leaves the profile unchanged. The future finishes once the result has been applied.
    QFuture<void> importProfile(const QString& path);
    // The same for bytes already read.
    void importProfileBytes(const QByteArray& bytes);
    // Writes the profile in force to a new file; a failure goes into error().
    QFuture<void> exportProfile(const QString& path);

signals:
    void profileChanged();
    void recordingChanged();
    void errorChanged();
    void conflictChanged();

private:
    void assign(const InputTrigger& trigger, bool replacingConflict);
    void applyImport(const Result<ShortcutProfile>& imported);
    void setProfile(ShortcutProfile profile);
    void setRecording(std::optional<ActionID> action, std::optional<InputTrigger> editing);
    void setError(std::optional<QString> error);
    void setConflict(std::optional<InputTrigger> conflict);

    bool m_persist;
    ShortcutProfile m_profile = ShortcutProfile::defaults();
    std::optional<ActionID> m_recording;
    std::optional<InputTrigger> m_editingTrigger;
    std::optional<QString> m_error;
    std::optional<InputTrigger> m_conflict;
    quint64 m_importGeneration = 0;
    SerialExecutor m_files{QStringLiteral("Shortcut files")};
};

} // namespace vantelor
