#include <gtest/gtest.h>

#include <QSettings>
#include <QTemporaryDir>
#include <QSignalSpy>
#include <QTest>

#include "Input/InputTestSupport.h"
#include "Input/KeyCodeTable.h"
#include "Input/ShortcutProfileFile.h"
#include "Model/ShortcutStore.h"
#include "Support/Sandbox.h"

using namespace vantelor;

namespace {

constexpr quint64 command = InputTrigger::commandModifier;
constexpr quint64 shift = InputTrigger::shiftModifier;

const InputTrigger back = InputTrigger::mouse(3, 0, QStringLiteral("Ratón 4"));
const InputTrigger forward = InputTrigger::mouse(4, 0, QStringLiteral("Ratón 5"));
const InputTrigger keyK = InputTrigger::key(40, 0, QStringLiteral("K"));
const InputTrigger escape = InputTrigger::key(KeyCodeTable::escapeKey, 0, QStringLiteral("Esc"));
const InputTrigger commandQ = InputTrigger::key(12, command, QStringLiteral("⌘Q"));
const QString reservedMessage = QStringLiteral("Este atajo está reservado para las ventanas y aplicaciones de macOS");

QSettings preferences()
{
    return QSettings(QStringLiteral("Vantelor"), QStringLiteral("Vantelor"));
}

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
class SandboxedPreferences : public ::testing::Environment {
public:
    void SetUp() override
    {
        ASSERT_TRUE(m_home.isValid());
        qputenv("XDG_CONFIG_HOME", m_home.path().toUtf8());
    }

private:
    QTemporaryDir m_home;
};

const auto* const sandboxedPreferences = ::testing::AddGlobalTestEnvironment(new SandboxedPreferences);

class ShortcutStoreTest : public ::testing::Test {
protected:
    void SetUp() override { preferences().remove(ShortcutStore::preferencesKey); }
    void TearDown() override { preferences().remove(ShortcutStore::preferencesKey); }
};

} // namespace

TEST_F(ShortcutStoreTest, RecordingAssignsRefusesOrCancels)
{
    struct Row {
        const char* name;
        ActionID action;
        InputTrigger pressed;
        QList<InputTrigger> expectedTriggers;
        const char* expectedError;
    };
    const Row rows[] = {
        {"Escape cancels, nothing added", ActionID::copy, escape, {}, nullptr},
        {"Escape with a modifier cancels too", ActionID::copy, InputTrigger::key(53, shift, QStringLiteral("⇧Esc")), {}, nullptr},
        {"side button added", ActionID::copy, back, {back}, nullptr},
        {"basic key of another action", ActionID::copy, InputTrigger::key(5, 0, QStringLiteral("G")), {},
         "Este atajo básico se conserva para Alternar hoja de contactos"},
        {"basic key of the same action changes nothing", ActionID::next, InputTrigger::key(124, 0, QStringLiteral("→")),
         {InputTrigger::key(124, 0, {})}, nullptr},
        {"reserved ⌘Q", ActionID::copy, commandQ, {}, "Este atajo está reservado para las ventanas y aplicaciones de macOS"},
        {"left button", ActionID::copy, InputTrigger::mouse(0, 0, QStringLiteral("Ratón 1")), {},
         "Usa el botón central o un botón adicional del ratón"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ShortcutStore store(false);
        QSignalSpy profileChanges(&store, &ShortcutStore::profileChanged);
        EXPECT_FALSE(store.capture(back)) << "a press while nothing records is not taken";
        store.startRecording(row.action);
        EXPECT_TRUE(store.capture(row.pressed));
        EXPECT_EQ(triggersOf(store, row.action), row.expectedTriggers);
        EXPECT_EQ(store.error(), row.expectedError ? std::optional<QString>(QString::fromUtf8(row.expectedError)) : std::nullopt);
        EXPECT_FALSE(store.recording().has_value());
        EXPECT_FALSE(store.conflict().has_value());
        EXPECT_EQ(profileChanges.count(), store.profile() == ShortcutProfile::defaults() ? 0 : 1);
    }
}

TEST_F(ShortcutStoreTest, ConflictWaitsForTheUserThenReplacesOrCancels)
{
    struct Row {
        const char* name;
        std::function<void(ShortcutStore&)> answer;
        std::optional<ActionID> holder;  // of the side button afterwards
        bool recording;
    };
    const Row rows[] = {
        {"Reemplazar", [](ShortcutStore& s) { s.replaceConflict(); }, ActionID::copy, false},
        {"Cancelar", [](ShortcutStore& s) { s.cancelRecording(); }, ActionID::move, false},
        {"Escape", [](ShortcutStore& s) { EXPECT_TRUE(s.capture(escape)); }, ActionID::move, false},
        {"the extra removed meanwhile", [](ShortcutStore& s) { s.remove(back); }, std::nullopt, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ShortcutStore store(false);
        record(store, ActionID::move, back);
        const ShortcutProfile before = store.profile();

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
    }
}

TEST_F(ShortcutStoreTest, ChangingAnAdditionalTriggerKeepsItsPlace)
{
    struct Row {
        const char* name;
        InputTrigger pressed;
        QList<InputTrigger> expected;  // next's triggers afterwards
    };
    const InputTrigger right = InputTrigger::key(124, 0, QStringLiteral("→"));
    const Row rows[] = {
        {"new key takes the edited one's place", keyK, {right, keyK, forward}},
        {"same trigger again changes nothing", back, {right, back, forward}},
        {"the action's own basic key drops the extra", right, {right, forward}},
        {"a refused key keeps the extra", commandQ, {right, back, forward}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ShortcutStore store(false);
        record(store, ActionID::next, back);
        record(store, ActionID::copy, InputTrigger::key(38, 0, QStringLiteral("J")));
        record(store, ActionID::next, forward);
        store.startRecording(ActionID::next, back);
        EXPECT_EQ(store.editingTrigger(), back);
        EXPECT_TRUE(store.capture(row.pressed));
        EXPECT_EQ(triggersOf(store, ActionID::next), row.expected);
        EXPECT_EQ(store.profile().action(InputTrigger::key(38, 0, {})), ActionID::copy);
        EXPECT_FALSE(store.editingTrigger().has_value());
        EXPECT_TRUE(store.profile().validated().ok());
    }
}

// Removing, resetting and recording are each saved at once, and a store that does not persist
// neither reads nor writes the preferences.
TEST_F(ShortcutStoreTest, EveryChangeIsSavedAndSurvivesARestart)
{
    test::Sandbox sandbox;
    ShortcutProfile expected;
    {
        ShortcutStore store(true);
        QSignalSpy errors(&store, &ShortcutStore::errorChanged);
        record(store, ActionID::next, back);
        record(store, ActionID::labelPurple, InputTrigger::key(40, command | shift, QStringLiteral("⇧⌘K")));
        store.remove(InputTrigger::key(124, 0, {}));
        EXPECT_EQ(store.profile().action(InputTrigger::key(124, 0, {})), ActionID::next) << "basic keys stay";
        store.remove(back);
        record(store, ActionID::previous, forward);
        expected = store.profile();
        // Behind the saves on the same worker: once it is done, they all are.
        wait(store.exportProfile(sandbox.file(QStringLiteral("a.json"))));
        EXPECT_EQ(errors.count(), 0);
    }
    ShortcutStore restarted(true);
    expectSameProfile(restarted.profile(), expected);
    {
        ShortcutStore transient(false);
        EXPECT_EQ(transient.profile(), ShortcutProfile::defaults());
        record(transient, ActionID::copy, keyK);
    }
    restarted.startRecording(ActionID::move);
    restarted.reset();
    EXPECT_FALSE(restarted.recording().has_value());
    wait(restarted.exportProfile(sandbox.file(QStringLiteral("b.json"))));
    EXPECT_EQ(ShortcutStore(true).profile(), ShortcutProfile::defaults());
}

TEST_F(ShortcutStoreTest, CorruptOrForeignPreferencesStartWithTheDefaultsSilently)
{
    ShortcutProfile version2 = ShortcutProfile::defaults();
    version2.version = 2;
    ShortcutProfile reserved = ShortcutProfile::defaults();
    reserved.bindings.append({ActionID::copy, commandQ});
    const QVariant rows[] = {
        QByteArray("\x00\xff{\"version\":1", 14),
        ShortcutProfile::defaults().toJson().left(100),
        42,
        QStringList{QStringLiteral("a"), QStringLiteral("b")},
        version2.toJson(),
        reserved.toJson(),
        ShortcutProfile::defaults().toJson().replace("\"sheet\"", "\"deleteAll\""),
    };
    for (const QVariant& stored : rows) {
        SCOPED_TRACE(stored.toString().toStdString());
        preferences().setValue(ShortcutStore::preferencesKey, stored);
        ShortcutStore store(true);
        expectSameProfile(store.profile(), ShortcutProfile::defaults());
        EXPECT_FALSE(store.error().has_value());
    }
}

TEST_F(ShortcutStoreTest, ExportNeverReplacesAFileAndImportGivesTheSameBindings)
{
    test::Sandbox sandbox;
    const QString file = sandbox.file(ShortcutProfileFile::suggestedName);
    ShortcutStore store(false);
    record(store, ActionID::labelPurple, InputTrigger::key(40, command | shift, QStringLiteral("⇧⌘K")));
    record(store, ActionID::zoomIn, InputTrigger::mouse(7, shift, QStringLiteral("⇧Ratón 8")));
    const ShortcutProfile exported = store.profile();
    wait(store.exportProfile(file));
    EXPECT_FALSE(store.error().has_value()) << store.error().value_or(QString()).toStdString();

    store.reset();
    wait(store.exportProfile(file));
    EXPECT_EQ(store.error(), QStringLiteral("Ya existe «Vantelor-shortcuts.json»: elige otro nombre"));
    wait(store.importProfile(file));
    EXPECT_FALSE(store.error().has_value());
    expectSameProfile(store.profile(), exported);

    wait(store.exportProfile(sandbox.file(QStringLiteral("missing/folder.json"))));
    EXPECT_EQ(store.error(), sandbox.file(QStringLiteral("missing/folder.json")) + QStringLiteral(": No such file or directory"));
}

TEST_F(ShortcutStoreTest, RefusedImportsSayWhyAndChangeNothing)
{
    const auto profileWith = [](auto change) {
        ShortcutProfile p = ShortcutProfile::defaults();
        change(p);
        return p.toJson();
    };
    const QByteArray version2 = profileWith([](ShortcutProfile& p) { p.version = 2; });
    const QByteArray reserved = profileWith([](ShortcutProfile& p) { p.bindings.append({ActionID::copy, commandQ}); });
    const QByteArray notJson("shortcuts: all of them");

    test::Sandbox sandbox;
    struct Row {
        const char* name;
        QString path;  // read from this file; empty: the bytes
        QByteArray bytes;
        QString message;
    };
    const Row rows[] = {
        {"not JSON", {}, notJson, ShortcutProfile::fromJson(notJson).message()},
        {"reserved ⌘Q", {}, reserved, reservedMessage},
        {"version 2, from a file", sandbox.write(QStringLiteral("v2.json"), version2), {},
         QStringLiteral("Perfil de atajos no compatible")},
        {"a folder", sandbox.mkdir(QStringLiteral("folder.json")), {},
         sandbox.file(QStringLiteral("folder.json")) + QStringLiteral(": Is a directory")},
        {"larger than any profile", sandbox.write(QStringLiteral("big.json"), QByteArray(ShortcutProfile::maximumFileBytes + 1, ' ')),
         {}, QStringLiteral("Perfil de atajos no compatible")},
    };
    ASSERT_FALSE(rows[0].message.isEmpty());
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ShortcutStore store(false);
        record(store, ActionID::next, back);
        const ShortcutProfile before = store.profile();
        QSignalSpy profileChanges(&store, &ShortcutStore::profileChanged);
        if (row.path.isEmpty())
            store.importProfileBytes(row.bytes);
        else
            wait(store.importProfile(row.path));
        EXPECT_EQ(store.error(), row.message);
        expectSameProfile(store.profile(), before);
        EXPECT_EQ(profileChanges.count(), 0);
    }
}

TEST_F(ShortcutStoreTest, OnlyTheLatestImportIsApplied)
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
    store.importProfileBytes(second.toJson());
    wait(older);
    EXPECT_EQ(store.profile(), second);
    EXPECT_EQ(profileChanges.count(), 1);
}
