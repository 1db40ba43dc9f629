#pragma once

#include <functional>
#include <optional>

#include <QString>

namespace vantelor {

// The two folder choosers of the controller: the folder to open, and the destination of a copy
// or move. The application shows a non-modal QFileDialog; tests answer by hand. Either way the
// answer arrives later, on the GUI thread, through `done`: the chosen folder as a byte-exact path
// (see Paths), or nothing when the user cancelled. A chooser may drop `done` without calling it
// (the window closed); the controller never waits for it.
class FolderChooser {
public:
    struct Request {
        QString prompt;           // the confirm button ("Abrir carpeta", "Elegir destino")
        QString message;          // the line above the folder list
        bool canCreateFolders = false;
    };
    using Done = std::function<void(std::optional<QString> folder)>;

    virtual ~FolderChooser() = default;
    virtual void chooseFolder(const Request& request, Done done) = 0;
};

} // namespace vantelor
