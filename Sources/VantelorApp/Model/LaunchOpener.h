#pragma once

#include <optional>

#include <QList>
#include <QObject>

#include "Model/LaunchTarget.h"

namespace vantelor {

class LibraryModel;

// Opens in a window's controller what a launch asked for: each folder as a tab, in order, so the
// last one is current; when that one was named through a photo, the photo is selected once the
// folder is prepared (the controller itself selects the first photo then). A folder opened in
// the meantime by the user cancels that selection. GUI thread only.
class LaunchOpener : public QObject {
    Q_OBJECT

public:
    explicit LaunchOpener(LibraryModel& library, QObject* parent = nullptr);

    void open(const QList<LaunchTarget>& targets);

private:
    void selectPending();

    LibraryModel& m_library;
    std::optional<LaunchTarget> m_pending;
    bool m_opening = false;
};

} // namespace vantelor
