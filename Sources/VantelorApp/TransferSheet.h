#pragma once

#include <QDialog>

#include "Files/TransferPlan.h"

class QTreeWidget;

namespace vantelor {

// The confirmation of a planned copy or move, as a window-modal sheet: every photo with the
// files that travel with it (same base name) and their sizes, the total and the destination.
// Accepting means confirmTransfer, rejecting cancelTransfer; the caller wires both.
class TransferSheet : public QDialog {
    Q_OBJECT

public:
    TransferSheet(const TransferPlan& plan, QWidget* parent);

    // For tests: one row per photo.
    QTreeWidget* list() const { return m_list; }
    // The total line as shown.
    QString totalText() const { return m_total; }

private:
    QTreeWidget* m_list = nullptr;
    QString m_total;
};

} // namespace vantelor
