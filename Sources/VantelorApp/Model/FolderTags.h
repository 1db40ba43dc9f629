#pragma once

#include <QByteArray>

#include "Library/SessionLabel.h"

namespace vantelor {

// The file manager's tags of a folder, as kept in its `user.xdg.tags` attribute: a comma-separated
// list that other programs write too. A colour label is one tag among them, named in Spanish
// ("Rojo", "Amarillo", "Verde", "Azul", "Morado"); English names and other capitalisations are
// recognised on reading. Every other tag is foreign and kept byte for byte, in its order, whatever
// its encoding: only empty entries between stray commas are dropped.
namespace FolderTags {

// The name under which a label is written; empty for none.
QByteArray tagName(SessionLabel label);
// The first colour tag in the value; none when it holds no colour.
SessionLabel label(const QByteArray& value);
// The value with its colour tags replaced by `label` (appended last) or removed for none.
QByteArray withLabel(const QByteArray& value, SessionLabel label);

} // namespace FolderTags
} // namespace vantelor
