#include "ShortcutSettingsWindow.h"

#include <QAction>
#include <QDir>
#include <QFileDialog>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QScrollArea>
#include <QStyle>
#include <QToolButton>
#include <QVBoxLayout>

#include "Input/ShortcutProfileFile.h"
#include "KeyboardInput.h"
#include "Model/ShortcutStore.h"
#include "Support/Paths.h"

namespace vantelor {

namespace {

QPointer<ShortcutSettingsWindow>& presentedWindow()
{
    static QPointer<ShortcutSettingsWindow> window;
    return window;
}

const QString basicStyle = QStringLiteral(
    "QLabel { background: #26292d; color: #c8ccd2; border: 1px solid #3a3e44; border-radius: 4px; padding: 2px 8px; }");
const QString additionalStyle = QStringLiteral(
    "QPushButton { background: #1d3350; color: #e6e6e6; border: 1px solid #3d8bfd; border-radius: 4px; padding: 2px 8px; }"
    "QPushButton:hover { background: #24416a; }");
const QString recordingStyle = QStringLiteral(
    "QPushButton { background: #3a2f12; color: #ffd27a; border: 1px solid #e0a526; border-radius: 4px; padding: 2px 8px; }");
const QString addStyle = QStringLiteral(
    "QPushButton { background: transparent; color: #9aa0a8; border: 1px dashed #4a4f57; border-radius: 4px; padding: 2px 8px; }"
    "QPushButton:hover { color: #e6e6e6; border-color: #8a8f98; }");
const QString warningStyle = QStringLiteral(
    "QFrame#errorBar { background: #3a2f12; border: 1px solid #e0a526; border-radius: 4px; }"
    "QFrame#errorBar QLabel { color: #ffd27a; }");
const QString conflictStyle = QStringLiteral(
    "QFrame#conflictBar { background: #2b2238; border: 1px solid #9b7be0; border-radius: 4px; }");

// Every chip of a row the same height, so that a row does not jump when a button replaces a label.
constexpr int chipHeight = 24;

QLabel* iconLabel(QStyle::StandardPixmap icon, QWidget* parent)
{
    auto* label = new QLabel(parent);
    label->setPixmap(parent->style()->standardIcon(icon).pixmap(16, 16));
    return label;
}

} // namespace

ShortcutSettingsWindow::ShortcutSettingsWindow(ShortcutStore& store, QWidget* parent)
    : QDialog(parent)
    , m_store(store)
{
    setWindowTitle(QStringLiteral("Atajos — teclado y ratón"));
    resize(760, 780);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 18, 20, 16);
    layout->setSpacing(10);

    auto* title = new QLabel(QStringLiteral("Atajos — teclado y ratón"), this);
    QFont titleFont = title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.5);
    titleFont.setBold(true);
    title->setFont(titleFont);
    layout->addWidget(title);

    auto* help = new QLabel(
        QStringLiteral("Los atajos básicos se conservan. Pulsa Añadir para una tecla o botón adicional; pulsa un atajo "
                       "adicional para cambiarlo. Esc cancela. Algunos controladores convierten los botones laterales en "
                       "teclas; también se admiten."),
        this);
    help->setWordWrap(true);
    layout->addWidget(help);

    // The glyphs come from the Mac keyboard the profiles were designed on; a PC keyboard has no ⌘.
    auto* keys = new QLabel(QStringLiteral("En los atajos, ⌘ es la tecla Ctrl, ⌥ es Alt y ⌃ es la tecla Super."), this);
    keys->setObjectName(QStringLiteral("modifierNote"));
    keys->setWordWrap(true);
    keys->setStyleSheet(QStringLiteral("color: #9aa0a8;"));
    layout->addWidget(keys);

    auto* area = new QScrollArea(this);
    area->setWidgetResizable(true);
    area->setFrameShape(QFrame::StyledPanel);
    buildRows(area);
    layout->addWidget(area, 1);

    m_errorBar = new QFrame(this);
    m_errorBar->setObjectName(QStringLiteral("errorBar"));
    m_errorBar->setStyleSheet(warningStyle);
    auto* errorLayout = new QHBoxLayout(m_errorBar);
    errorLayout->setContentsMargins(10, 6, 10, 6);
    errorLayout->addWidget(iconLabel(QStyle::SP_MessageBoxWarning, m_errorBar));
    m_errorText = new QLabel(m_errorBar);
    m_errorText->setObjectName(QStringLiteral("errorText"));
    m_errorText->setWordWrap(true);
    m_errorText->setTextInteractionFlags(Qt::TextSelectableByMouse);
    errorLayout->addWidget(m_errorText, 1);
    layout->addWidget(m_errorBar);

    m_conflictBar = new QFrame(this);
    m_conflictBar->setObjectName(QStringLiteral("conflictBar"));
    m_conflictBar->setStyleSheet(conflictStyle);
    auto* conflictLayout = new QHBoxLayout(m_conflictBar);
    conflictLayout->setContentsMargins(10, 6, 10, 6);
    conflictLayout->addWidget(iconLabel(QStyle::SP_MessageBoxQuestion, m_conflictBar));
    m_conflictText = new QLabel(m_conflictBar);
    m_conflictText->setObjectName(QStringLiteral("conflictText"));
    m_conflictText->setWordWrap(true);
    conflictLayout->addWidget(m_conflictText, 1);
    auto* replace = new QPushButton(QStringLiteral("Reemplazar"), m_conflictBar);
    replace->setObjectName(QStringLiteral("replaceConflict"));
    connect(replace, &QPushButton::clicked, &m_store, &ShortcutStore::replaceConflict);
    conflictLayout->addWidget(replace);
    auto* cancel = new QPushButton(QStringLiteral("Cancelar"), m_conflictBar);
    cancel->setObjectName(QStringLiteral("cancelConflict"));
    connect(cancel, &QPushButton::clicked, &m_store, &ShortcutStore::cancelRecording);
    conflictLayout->addWidget(cancel);
    layout->addWidget(m_conflictBar);

    auto* buttons = new QHBoxLayout;
    auto* importButton = new QPushButton(QStringLiteral("Importar…"), this);
    importButton->setObjectName(QStringLiteral("import"));
    connect(importButton, &QPushButton::clicked, this, &ShortcutSettingsWindow::chooseImport);
    buttons->addWidget(importButton);
    auto* exportButton = new QPushButton(QStringLiteral("Exportar…"), this);
    exportButton->setObjectName(QStringLiteral("export"));
    connect(exportButton, &QPushButton::clicked, this, &ShortcutSettingsWindow::chooseExport);
    buttons->addWidget(exportButton);
    buttons->addStretch(1);
    auto* resetButton = new QPushButton(QStringLiteral("Restablecer valores"), this);
    resetButton->setObjectName(QStringLiteral("reset"));
    connect(resetButton, &QPushButton::clicked, &m_store, &ShortcutStore::reset);
    buttons->addWidget(resetButton);
    layout->addLayout(buttons);

    // Enter and Space would press whichever button has the focus; while recording they are
    // shortcuts to record, and the capture takes them before any button sees them.
    for (QPushButton* button : findChildren<QPushButton*>())
        button->setAutoDefault(false);

    m_input = new KeyboardInput(this, [this](const InputTrigger& trigger) { return m_store.capture(trigger); });

    connect(&m_store, &ShortcutStore::profileChanged, this, &ShortcutSettingsWindow::refreshRows);
    connect(&m_store, &ShortcutStore::recordingChanged, this, [this] {
        m_input->setCapturing(m_store.recording().has_value());
        refreshRows();
    });
    connect(&m_store, &ShortcutStore::errorChanged, this, &ShortcutSettingsWindow::refreshError);
    connect(&m_store, &ShortcutStore::conflictChanged, this, &ShortcutSettingsWindow::refreshConflict);
    m_input->setCapturing(m_store.recording().has_value());
    refreshError();
    refreshConflict();
}

void ShortcutSettingsWindow::present(ShortcutStore& store, QWidget* parent)
{
    QPointer<ShortcutSettingsWindow>& window = presentedWindow();
    if (window && &window->m_store != &store)
        delete window.data();
    if (!window) {
        window = new ShortcutSettingsWindow(store, parent);
        window->setAttribute(Qt::WA_DeleteOnClose);
    }
    window->show();
    window->raise();
    window->activateWindow();
}

ShortcutSettingsWindow* ShortcutSettingsWindow::presented()
{
    return presentedWindow().data();
}

QAction* ShortcutSettingsWindow::preferencesAction(ShortcutStore& store, QWidget* window)
{
    auto* action = new QAction(QStringLiteral("Preferencias…"), window);
    action->setShortcut(QKeySequence::Preferences);
    action->setMenuRole(QAction::PreferencesRole);
    connect(action, &QAction::triggered, window, [&store, window] { present(store, window); });
    return action;
}

void ShortcutSettingsWindow::hideEvent(QHideEvent* event)
{
    // A recording nobody can see would swallow the next key pressed elsewhere once shown again.
    m_store.cancelRecording();
    QDialog::hideEvent(event);
}

void ShortcutSettingsWindow::buildRows(QScrollArea* area)
{
    auto* list = new QWidget(area);
    auto* grid = new QGridLayout(list);
    grid->setContentsMargins(12, 10, 12, 10);
    grid->setHorizontalSpacing(16);
    grid->setVerticalSpacing(4);
    grid->setColumnStretch(1, 1);
    int line = 0;
    for (const ActionID action : ActionIDs::allCases) {
        auto* name = new QLabel(ActionIDs::title(action), list);
        name->setMinimumWidth(230);
        grid->addWidget(name, line, 0, Qt::AlignLeft | Qt::AlignVCenter);
        auto* triggers = new QHBoxLayout;
        triggers->setSpacing(6);
        grid->addLayout(triggers, line, 1);
        m_rows.append({action, triggers});
        ++line;
    }
    grid->setRowStretch(line, 1);
    area->setWidget(list);
    refreshRows();
}

void ShortcutSettingsWindow::refreshRows()
{
    for (const Row& row : m_rows)
        fillRow(row);
}

void ShortcutSettingsWindow::fillRow(const Row& row)
{
    // The button that was clicked may be among the old widgets: they go once its signal returns.
    while (QLayoutItem* item = row.triggers->takeAt(0)) {
        if (QWidget* widget = item->widget()) {
            widget->hide();
            widget->deleteLater();
        }
        delete item;
    }
    QWidget* list = row.triggers->parentWidget();
    const QString raw = ActionIDs::rawValue(row.action);
    const bool recordingHere = m_store.recording() == row.action;
    const auto recordingChip = [&] {
        auto* chip = new QPushButton(QStringLiteral("Pulsa tecla / botón…"), list);
        chip->setObjectName(QStringLiteral("recording-") + raw);
        chip->setStyleSheet(recordingStyle);
        chip->setAutoDefault(false);
        chip->setFocusPolicy(Qt::NoFocus);
        chip->setToolTip(QStringLiteral("Esc cancela"));
        connect(chip, &QPushButton::clicked, &m_store, &ShortcutStore::cancelRecording);
        return chip;
    };

    for (const ShortcutBinding& binding : m_store.profile().bindings) {
        if (binding.action != row.action)
            continue;
        if (ShortcutProfile::isBasic(binding.trigger)) {
            auto* chip = new QLabel(binding.trigger.display, list);
            chip->setObjectName(QStringLiteral("basic-") + raw);
            chip->setToolTip(QStringLiteral("Atajo básico"));
            chip->setStyleSheet(basicStyle);
            row.triggers->addWidget(chip);
            continue;
        }
        if (recordingHere && m_store.editingTrigger() && *m_store.editingTrigger() == binding.trigger) {
            row.triggers->addWidget(recordingChip());
            continue;
        }
        auto* change = new QPushButton(binding.trigger.display, list);
        change->setObjectName(QStringLiteral("change-") + raw);
        change->setToolTip(QStringLiteral("Cambiar atajo adicional"));
        change->setStyleSheet(additionalStyle);
        change->setAutoDefault(false);
        change->setFocusPolicy(Qt::NoFocus);
        const InputTrigger trigger = binding.trigger;
        connect(change, &QPushButton::clicked, this, [this, action = row.action, trigger] { m_store.startRecording(action, trigger); });
        row.triggers->addWidget(change);

        auto* remove = new QToolButton(list);
        remove->setObjectName(QStringLiteral("remove-") + raw);
        remove->setIcon(style()->standardIcon(QStyle::SP_LineEditClearButton));
        remove->setToolTip(QStringLiteral("Quitar este atajo adicional"));
        remove->setAccessibleName(QStringLiteral("Quitar este atajo adicional"));
        remove->setAutoRaise(true);
        remove->setFocusPolicy(Qt::NoFocus);
        connect(remove, &QToolButton::clicked, this, [this, trigger] { m_store.remove(trigger); });
        row.triggers->addWidget(remove);
    }

    if (recordingHere && !m_store.editingTrigger()) {
        row.triggers->addWidget(recordingChip());
    } else {
        auto* add = new QPushButton(QStringLiteral("Añadir"), list);
        add->setObjectName(QStringLiteral("add-") + raw);
        add->setStyleSheet(addStyle);
        add->setAutoDefault(false);
        add->setFocusPolicy(Qt::NoFocus);
        connect(add, &QPushButton::clicked, this, [this, action = row.action] { m_store.startRecording(action); });
        row.triggers->addWidget(add);
    }
    for (int i = 0; i < row.triggers->count(); ++i)
        if (QWidget* widget = row.triggers->itemAt(i)->widget())
            widget->setFixedHeight(chipHeight);
    row.triggers->addStretch(1);
}

void ShortcutSettingsWindow::refreshError()
{
    m_errorText->setText(m_store.error().value_or(QString()));
    m_errorBar->setVisible(m_store.error().has_value());
}

void ShortcutSettingsWindow::refreshConflict()
{
    if (!m_store.conflict()) {
        m_conflictBar->hide();
        return;
    }
    const QString wanted = m_store.recording() ? ActionIDs::title(*m_store.recording()) : QString();
    m_conflictText->setText(QStringLiteral("<b>%1</b> · %2. ¿Reemplazar para %3?")
                                .arg(m_store.conflict()->display.toHtmlEscaped(), m_store.conflictMessage().toHtmlEscaped(),
                                     wanted.toHtmlEscaped()));
    m_conflictBar->show();
}

void ShortcutSettingsWindow::chooseImport()
{
    // open(), not exec(): a sheet over this window, no nested event loop.
    auto* dialog = new QFileDialog(this, QStringLiteral("Importar atajos"), QDir::homePath(),
                                   QStringLiteral("Perfil de atajos (*.json)"));
    dialog->setAcceptMode(QFileDialog::AcceptOpen);
    dialog->setFileMode(QFileDialog::ExistingFile);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    connect(dialog, &QFileDialog::fileSelected, this, [this](const QString& file) { m_store.importProfile(Paths::clean(file)); });
    dialog->open();
}

void ShortcutSettingsWindow::chooseExport()
{
    auto* dialog = new QFileDialog(this, QStringLiteral("Exportar atajos"), QDir::homePath(),
                                   QStringLiteral("Perfil de atajos (*.json)"));
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->setDefaultSuffix(QStringLiteral("json"));
    dialog->selectFile(ShortcutProfileFile::suggestedName);
    // The store never replaces a file, so the dialog must not offer to.
    dialog->setOption(QFileDialog::DontConfirmOverwrite);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    connect(dialog, &QFileDialog::fileSelected, this, [this](const QString& file) { m_store.exportProfile(Paths::clean(file)); });
    dialog->open();
}

} // namespace vantelor
