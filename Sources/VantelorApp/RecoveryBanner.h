#pragma once

#include <QFrame>

class QLabel;
class QPushButton;

namespace vantelor {

class LibraryModel;

// The strip above the photos that says a transfer into or out of the open folder stopped
// half-way, with what the journals tell, and offers to put it right; afterwards it says what was
// done until the user closes it. Hidden while there is nothing to say.
class RecoveryBanner : public QFrame {
    Q_OBJECT

public:
    explicit RecoveryBanner(LibraryModel& library, QWidget* parent = nullptr);

    QPushButton* repairButton() const { return m_repair; }

private:
    void refresh();

    LibraryModel& m_library;
    QLabel* m_title = nullptr;
    QLabel* m_text = nullptr;
    QPushButton* m_repair = nullptr;
    QPushButton* m_close = nullptr;
};

} // namespace vantelor
