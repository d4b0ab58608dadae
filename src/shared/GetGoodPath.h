#pragma once

#include <QString>

namespace corvina {

// A full path in `folder` at which nothing exists yet, for a file that wants to be called `name`:
// the name itself, then the name's base (without its last extension) followed by "_1", "_2", ...
// with the extension kept after it: photo.jpg, photo_1.jpg, photo_2.jpg; a.tar.gz, a.tar_1.gz;
// notes, notes_1. The counter is always added to the plain base, never to a suffixed one.
//
// A name never grows past the 255 bytes a file name can have: when the counter would make it
// longer, characters come off the end of the base (then of the extension) to make room.
//
// Anything at a place blocks it: a file, a folder, and a symbolic link even when it points nowhere,
// so that a staged file is never written through a link someone left in the folder.
// Nothing reserves the path: callers keep the folder locked while they write to it.
QString GetGoodPath(const QString& name, const QString& folder);

} // namespace corvina
