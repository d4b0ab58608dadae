#pragma once

#include <QRunnable>
#include <functional>

namespace corvina {

// Work handed to another thread through Qt's thread pools or event loop crosses locks inside Qt's
// own library, which ThreadSanitizer cannot see in a build of Qt that it did not instrument. These
// calls state that hand-off to it: everything a thread wrote before release() is visible to the
// thread that runs the work after acquire(). Outside sanitizer builds they do nothing.
class Handoff {
public:
    static void release();
    // First thing in the handed-over work, before it touches anything it was given.
    static void acquire();
    // `work` as a runnable for a QThreadPool, released now and acquired when it starts running, so
    // that not even the pool's first read of the work is left unstated.
    static QRunnable* runnable(std::function<void()> work);
};

} // namespace corvina
