#pragma once

#include <QFileDialog>
#include <QPointer>

#include "Model/FolderChooser.h"

class QUrl;
class QWidget;

namespace vantelor {

// The controller's folder chooser as Qt's own non-modal file dialog in directory mode (it has a
// new-folder button). One dialog at a time: a second request replaces an open one, whose answer
// is then never given. GUI thread only.
class QFileDialogChooser final : public FolderChooser {
public:
    explicit QFileDialogChooser(QWidget* parent);
    ~QFileDialogChooser() override;

    void chooseFolder(const Request& request, Done done) override;
    // The window the dialog belongs to (it may be created after the chooser).
    void setParentWidget(QWidget* parent) { m_parent = parent; }

    // The dialog on screen, if any (tests answer through it).
    QFileDialog* dialog() const { return m_dialog; }

    // The byte-exact path of a chosen folder. QFileDialog hands out paths decoded by Qt, which
    // replaces bytes that are not UTF-8; its URL form keeps them percent-encoded.
    static QString pathFromUrl(const QUrl& url);

private:
    QPointer<QWidget> m_parent;
    QPointer<QFileDialog> m_dialog;
};

} // namespace vantelor
