#pragma once

#include "platform/PictureHeader.h"

namespace corvina {

// The half of corvina-today that shows something: the widget's window and its tray, with Qt Gui and
// Qt Widgets. It is a module of its own (corvina-today-window.so) that the program loads only when
// it shows the widget, or when --list meets an avatar that is not PNG: --list, --help and --version
// then start with Qt Core alone, in less than half the memory (Qt Gui and Widgets, with the libraries
// they load, take about 8 MiB before the first line of ours runs).
class WidgetProgram {
public:
    // The widget, from the same command line as the program's: a QApplication, the options, the
    // window or the tray, and the event loop; the program's exit status.
    static int run(int argc, char* argv[]);

    // The reader of avatars that are not PNG (Qt Gui's image readers), for PictureHeader.
    static PictureHeader::Reader pictureReader();
};

} // namespace corvina
