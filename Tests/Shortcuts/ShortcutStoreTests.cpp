#include <gtest/gtest.h>

#include <QSettings>
#include <QTemporaryDir>
#include <QSignalSpy>
#include <QTest>

#include "Input/KeyCodeTable.h"
#include "Input/ShortcutProfileFile.h"
#include "Model/ShortcutStore.h"
#include "Support/ProfileExpectations.h"
#include "Support/Sandbox.h"

using namespace vantelor;
using test::expectSameProfile;

namespace {

constexpr quint64 command = InputTrigger::commandModifier;
constexpr quint64 shift = InputTrigger::shiftModifier;

const InputTrigger back = InputTrigger::mouse(3, 0, QStringLiteral("Ratón 4"));
const InputTrigger forward = InputTrigger::mouse(4, 0, QStringLiteral("Ratón 5"));
const InputTrigger escape = InputTrigger::key(KeyCodeTable::escapeKey, 0, QStringLiteral("Esc"));

void wait(const QFuture<void>& future)
{
    // Generous: the worker shares a busy machine with other test programs.
    ASSERT_TRUE(QTest::qWaitFor([&] { return future.isFinished(); }, 30000));
}

// Records `trigger` for `action` as the settings screen does.
void record(ShortcutStore& store, ActionID action, const InputTrigger& trigger)
{
    store.startRecording(action);
    ASSERT_TRUE(store.capture(trigger));
}

QList<InputTrigger> triggersOf(const ShortcutStore& store, ActionID action)
{
    QList<InputTrigger> triggers;
    for (const ShortcutBinding& binding : store.profile().bindings)
        if (binding.action == action)
            triggers.append(binding.trigger);
    return triggers;
}

// The preferences of the whole run live in a folder of their own, never in the user's: QSettings
// fixes its paths on first use, so this is set before any test runs.
[[maybe_unused]] const bool sandboxedPreferences = [] {
    static QTemporaryDir home;
    return qputenv("XDG_CONFIG_HOME", home.path().toUtf8());
}();

} // namespace

// Editing an extra trigger replaces it where it stands; turning it into the action's own basic
// key leaves only the basic key.
TEST(ShortcutStore, AnEditedTriggerIsReplacedInPlace)
{
    const InputTrigger other = InputTrigger::mouse(5, 0, QStringLiteral("Ratón 6"));
    ShortcutStore store(false);
    const QList<InputTrigger> basic = triggersOf(store, ActionID::sheet);
    record(store, ActionID::sheet, back);
    record(store, ActionID::sheet, forward);
    store.startRecording(ActionID::sheet, back);
    ASSERT_TRUE(store.capture(other));
    EXPECT_EQ(triggersOf(store, ActionID::sheet), basic + QList<InputTrigger>({other, forward}));
    store.startRecording(ActionID::sheet, forward);
    ASSERT_TRUE(store.capture(InputTrigger::key(5, 0, QStringLiteral("G"))));
    EXPECT_EQ(triggersOf(store, ActionID::sheet), basic + QList<InputTrigger>({other}));
}

TEST(ShortcutStore, ConflictWaitsForTheUserThenReplacesOrCancels)
{
    // holder: of the side button afterwards.
    struct Row { const char* name; std::function<void(ShortcutStore&)> answer; std::optional<ActionID> holder; bool recording; };
    const Row rows[] = {
        {"Reemplazar", [](ShortcutStore& s) { s.replaceConflict(); }, ActionID::copy, false},
        {"Cancelar", [](ShortcutStore& s) { s.cancelRecording(); }, ActionID::move, false},
        {"Escape", [](ShortcutStore& s) { EXPECT_TRUE(s.capture(escape)); }, ActionID::move, false},
        {"the extra removed meanwhile", [](ShortcutStore& s) { s.remove(back); }, std::nullopt, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ShortcutStore store(false);
        EXPECT_FALSE(store.capture(back)) << "a press while nothing records is not taken";
        record(store, ActionID::move, back);
        const ShortcutProfile before = store.profile();
        QSignalSpy profileChanges(&store, &ShortcutStore::profileChanged);

        store.startRecording(ActionID::copy);
        EXPECT_TRUE(store.capture(back));
        ASSERT_TRUE(store.conflict().has_value());
        EXPECT_EQ(store.conflictMessage(), QStringLiteral("Ya está asignado a Mover selección…"));
        EXPECT_EQ(store.recording(), ActionID::copy);
        EXPECT_FALSE(store.error().has_value());
        EXPECT_EQ(store.profile(), before);

        row.answer(store);
        EXPECT_FALSE(store.conflict().has_value());
        EXPECT_EQ(store.recording().has_value(), row.recording);
        EXPECT_EQ(store.profile().action(back), row.holder);
        EXPECT_EQ(store.profile().bindings.size(), before.bindings.size() - (row.holder ? 0 : 1));
        EXPECT_EQ(profileChanges.count(), store.profile() == before ? 0 : 1) << "told once, and only of a change";
    }
}

// Removing, resetting and recording are each saved at once, and a store that does not persist
// neither reads nor writes the preferences. An export never replaces a file, and importing it
// gives back the same bindings; a refused export or import says why and changes nothing.
TEST(ShortcutStore, EveryChangeIsSavedAndSurvivesARestartOrAnExportAndImport)
{
    QSettings(QStringLiteral("Vantelor"), QStringLiteral("Vantelor")).remove(ShortcutStore::preferencesKey);
    test::Sandbox sandbox;
    const QString file = sandbox.file(ShortcutProfileFile::suggestedName);
    ShortcutProfile expected;
    {
        ShortcutStore store(true);
        QSignalSpy errors(&store, &ShortcutStore::errorChanged);
        record(store, ActionID::next, back);
        record(store, ActionID::labelPurple, InputTrigger::key(40, command | shift, QStringLiteral("⇧⌘K")));
        record(store, ActionID::zoomIn, InputTrigger::mouse(7, shift, QStringLiteral("⇧Ratón 8")));
        store.remove(InputTrigger::key(124, 0, {}));
        EXPECT_EQ(store.profile().action(InputTrigger::key(124, 0, {})), ActionID::next) << "basic keys stay";
        store.remove(back);
        record(store, ActionID::previous, forward);
        expected = store.profile();
        // Behind the saves on the same worker: once it is done, they all are.
        wait(store.exportProfile(file));
        EXPECT_EQ(errors.count(), 0);
    }
    ShortcutStore store(true);
    expectSameProfile(store.profile(), expected);
    store.startRecording(ActionID::move);
    store.reset();
    EXPECT_FALSE(store.recording().has_value());
    wait(store.exportProfile(sandbox.file(QStringLiteral("b.json"))));
    EXPECT_EQ(ShortcutStore(true).profile(), ShortcutProfile::defaults());
    record(store, ActionID::next, back);
    const ShortcutProfile before = store.profile();

    const QByteArray notJson("shortcuts: all of them");
    struct Row { const char* name; std::function<QFuture<void>()> act; QString message; };
    const Row rows[] = {
        {"export over a file", [&] { return store.exportProfile(file); }, QStringLiteral("Ya existe «Vantelor-shortcuts.json»: elige otro nombre")},
        {"not JSON", [&] { store.importProfileBytes(notJson); return QtFuture::makeReadyFuture(); }, ShortcutProfile::fromJson(notJson).message()},
        {"a folder", [&] { return store.importProfile(sandbox.mkdir(QStringLiteral("folder.json"))); },
         sandbox.file(QStringLiteral("folder.json")) + QStringLiteral(": Is a directory")},
        {"too large", [&] { return store.importProfile(sandbox.write(QStringLiteral("big.json"), QByteArray(ShortcutProfile::maximumFileBytes + 1, ' '))); },
         QStringLiteral("Perfil de atajos no compatible")},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        QSignalSpy profileChanges(&store, &ShortcutStore::profileChanged);
        wait(row.act());
        EXPECT_EQ(store.error(), row.message);
        expectSameProfile(store.profile(), before);
        EXPECT_EQ(profileChanges.count(), 0);
    }

    wait(store.importProfile(file));
    EXPECT_FALSE(store.error().has_value());
    expectSameProfile(store.profile(), expected);
}

TEST(ShortcutStore, OnlyTheLatestImportIsApplied)
{
    test::Sandbox sandbox;
    ShortcutProfile first = ShortcutProfile::defaults();
    ASSERT_TRUE(first.bind(back, ActionID::copy, false).ok());
    ShortcutProfile second = ShortcutProfile::defaults();
    ASSERT_TRUE(second.bind(forward, ActionID::move, false).ok());
    const QString firstFile = sandbox.write(QStringLiteral("a.json"), first.toJson());

    ShortcutStore store(false);
    QSignalSpy profileChanges(&store, &ShortcutStore::profileChanged);
    const QFuture<void> older = store.importProfile(firstFile);
    // A worker quick enough finishes the older read before the newer import is asked for, and
    // that import is then applied at once; what must never happen is the older one landing last.
    store.importProfileBytes(second.toJson());
    const qsizetype changes = profileChanges.count();
    wait(older);
    EXPECT_EQ(store.profile(), second);
    EXPECT_EQ(profileChanges.count(), changes);
}
