#include "ShortcutStore.h"

#include <QSettings>

#include "Input/KeyCodeTable.h"
#include "Input/ShortcutProfileFile.h"

namespace vantelor {

namespace {

QSettings preferences()
{
    return QSettings(QStringLiteral("Vantelor"), QStringLiteral("Vantelor"));
}

qsizetype indexOf(const ShortcutProfile& profile, const InputTrigger& trigger)
{
    for (qsizetype i = 0; i < profile.bindings.size(); ++i)
        if (profile.bindings[i].trigger == trigger)
            return i;
    return -1;
}

} // namespace

ShortcutStore::ShortcutStore(bool persist, QObject* parent)
    : QObject(parent)
    , m_persist(persist)
{
    if (!m_persist)
        return;
    // A corrupt or foreign entry is ignored: the defaults stay in force, silently.
    const Result<ShortcutProfile> stored = ShortcutProfileFile::decode(preferences().value(preferencesKey).toByteArray());
    if (stored)
        m_profile = *stored;
}

ShortcutStore::~ShortcutStore() = default;

QString ShortcutStore::conflictMessage() const
{
    if (!m_conflict)
        return {};
    const std::optional<ActionID> holder = m_profile.action(*m_conflict);
    return holder ? QStringLiteral("Ya está asignado a ") + ActionIDs::title(*holder) : QString();
}

void ShortcutStore::startRecording(ActionID action, std::optional<InputTrigger> editing)
{
    setConflict(std::nullopt);
    setError(std::nullopt);
    setRecording(action, std::move(editing));
}

void ShortcutStore::cancelRecording()
{
    setConflict(std::nullopt);
    setRecording(std::nullopt, std::nullopt);
}

bool ShortcutStore::capture(const InputTrigger& trigger)
{
    if (!m_recording)
        return false;
    if (trigger.kind == InputTrigger::Kind::key && trigger.code == KeyCodeTable::escapeKey) {
        cancelRecording();
        return true;
    }
    // A press while a conflict awaits its answer is a new attempt: the old question goes.
    setConflict(std::nullopt);
    assign(trigger, false);
    return true;
}

void ShortcutStore::replaceConflict()
{
    if (!m_conflict || !m_recording)
        return;
    const InputTrigger trigger = *m_conflict;
    setConflict(std::nullopt);
    assign(trigger, true);
}

void ShortcutStore::assign(const InputTrigger& trigger, bool replacingConflict)
{
    const ActionID action = *m_recording;
    ShortcutProfile next = m_profile;
    const Status bound = next.bind(trigger, action, replacingConflict);
    if (!bound) {
        const std::optional<ActionID> holder = m_profile.action(trigger);
        if (!replacingConflict && holder && *holder != action && !ShortcutProfile::isBasic(trigger)) {
            // Recording goes on: the screen asks whether to take the trigger from its action.
            setError(std::nullopt);
            setConflict(trigger);
            return;
        }
        setError(bound.message());
        setRecording(std::nullopt, std::nullopt);
        return;
    }
    if (m_editingTrigger && !(*m_editingTrigger == trigger)) {
        const qsizetype edited = indexOf(next, *m_editingTrigger);
        if (edited >= 0 && next.bindings[edited].action == action) {
            if (ShortcutProfile::isBasic(trigger)) {
                // The action already has this key as a basic one; the edited extra simply goes.
                next.bindings.removeAt(edited);
            } else {
                // The new trigger takes the edited one's place, so the row keeps its order.
                const ShortcutBinding replacement = next.bindings.takeAt(indexOf(next, trigger));
                next.bindings[indexOf(next, *m_editingTrigger)] = replacement;
            }
        }
    }
    setError(std::nullopt);
    setRecording(std::nullopt, std::nullopt);
    setProfile(std::move(next));
    save();
}

void ShortcutStore::remove(const InputTrigger& trigger)
{
    if (ShortcutProfile::isBasic(trigger))
        return;
    const qsizetype index = indexOf(m_profile, trigger);
    if (index < 0)
        return;
    ShortcutProfile next = m_profile;
    next.bindings.removeAt(index);
    // A removed trigger can no longer be the one being edited or the one in conflict.
    if (m_editingTrigger && *m_editingTrigger == trigger)
        cancelRecording();
    if (m_conflict && *m_conflict == trigger)
        setConflict(std::nullopt);
    setProfile(std::move(next));
    save();
}

void ShortcutStore::reset()
{
    cancelRecording();
    setError(std::nullopt);
    setProfile(ShortcutProfile::defaults());
    save();
}

void ShortcutStore::save()
{
    if (!m_persist)
        return;
    // On the worker, behind any file operation already asked for: the preferences file is written
    // when QSettings syncs, which is disk work.
    m_files
        .run([bytes = m_profile.toJson()](const CancelCheck&) {
            QSettings settings = preferences();
            settings.setValue(preferencesKey, bytes);
            settings.sync();
            return settings.status() == QSettings::NoError;
        })
        .then(this, [this](bool saved) {
            if (!saved)
                setError(QStringLiteral("No se pudieron guardar los atajos en las preferencias"));
        });
}

QFuture<void> ShortcutStore::importProfile(const QString& path)
{
    const quint64 generation = ++m_importGeneration;
    return m_files.run([path](const CancelCheck&) { return ShortcutProfileFile::read(path); })
        .then(this, [this, generation](const Result<ShortcutProfile>& imported) {
            if (generation == m_importGeneration)
                applyImport(imported);
        });
}

void ShortcutStore::importProfileBytes(const QByteArray& bytes)
{
    ++m_importGeneration;
    applyImport(ShortcutProfileFile::decode(bytes));
}

void ShortcutStore::applyImport(const Result<ShortcutProfile>& imported)
{
    if (!imported) {
        setError(imported.message());
        return;
    }
    cancelRecording();
    setError(std::nullopt);
    setProfile(*imported);
    save();
}

QFuture<void> ShortcutStore::exportProfile(const QString& path)
{
    return m_files.run([profile = m_profile, path](const CancelCheck&) { return ShortcutProfileFile::write(profile, path); })
        .then(this, [this](const Status& written) {
            setError(written ? std::nullopt : std::optional<QString>(written.message()));
        });
}

void ShortcutStore::setProfile(ShortcutProfile profile)
{
    // Displays are compared too: an import may rename a trigger without changing what it is.
    const bool same = profile == m_profile
        && std::equal(profile.bindings.cbegin(), profile.bindings.cend(), m_profile.bindings.cbegin(),
                      [](const ShortcutBinding& a, const ShortcutBinding& b) { return a.trigger.display == b.trigger.display; });
    if (same)
        return;
    m_profile = std::move(profile);
    emit profileChanged();
}

void ShortcutStore::setRecording(std::optional<ActionID> action, std::optional<InputTrigger> editing)
{
    const bool sameEditing = editing.has_value() == m_editingTrigger.has_value() && (!editing || *editing == *m_editingTrigger);
    if (action == m_recording && sameEditing)
        return;
    m_recording = action;
    m_editingTrigger = std::move(editing);
    emit recordingChanged();
}

void ShortcutStore::setError(std::optional<QString> error)
{
    if (error == m_error)
        return;
    m_error = std::move(error);
    emit errorChanged();
}

void ShortcutStore::setConflict(std::optional<InputTrigger> conflict)
{
    const bool same = conflict.has_value() == m_conflict.has_value() && (!conflict || *conflict == *m_conflict);
    if (same)
        return;
    m_conflict = std::move(conflict);
    emit conflictChanged();
}

} // namespace vantelor
