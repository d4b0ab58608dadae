#include "Handoff.h"

#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
#endif

namespace corvina {

namespace {

[[maybe_unused]] char g_token = 0;

// The pool reads only this object's virtual table before run(), and that read is in Qt's code;
// everything of ours is touched after acquire().
class HandedOffWork final : public QRunnable {
public:
    explicit HandedOffWork(std::function<void()> work) : m_work(std::move(work)) {}
    void run() override {
        Handoff::acquire();
        m_work();
    }

private:
    std::function<void()> m_work;
};

} // namespace

void Handoff::release() {
#if defined(__SANITIZE_THREAD__)
    __tsan_release(&g_token);
#endif
}

void Handoff::acquire() {
#if defined(__SANITIZE_THREAD__)
    __tsan_acquire(&g_token);
#endif
}

QRunnable* Handoff::runnable(std::function<void()> work) {
    auto* runnable = new HandedOffWork(std::move(work));
    release();
    return runnable;
}

} // namespace corvina
