#pragma once

#include "platform/PictureHeader.h"

#include <QString>

namespace corvina {

// The window's half of corvina-today (WidgetProgram, built as corvina-today-window.so), loaded from
// the program's side when it is needed: to show the widget, or to read an avatar that is not PNG
// for --list. Looked for next to the program (a build keeps them together), then where the package
// installs it (WINDOW_MODULE_DIR, relative to the program's folder).
class WindowModule {
public:
    // Hands the whole command line to the widget; the exit status, or 1 with a line on stderr when
    // the module cannot be loaded.
    static int runWidget(int argc, char* argv[]);

    // PictureHeader's reader of every format but PNG for a program that does not link Qt Gui: the
    // module is loaded at the first such picture. When it cannot be, such a picture reads as none,
    // and one line on stderr says why.
    static PictureHeader::Header inspectOtherFormat(const QByteArray& bytes, qint64 maximumPixels);

    // The module's file name.
    static inline const QString fileName = QStringLiteral("corvina-today-window.so");

private:
    // The loaded module's function `symbol`; null with `error` set when it cannot be had.
    static void* resolve(const char* symbol, QString* error);
};

} // namespace corvina
