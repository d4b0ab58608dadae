// The floor of the widget's first frame: the least a Qt Widgets program does to put a window on the
// screen, a window of the widget's first size (320 x 101: the host's margins of 8, the header of 30,
// the gap of 5 and the table's first height of 50) holding one label. At the window's first frame
// (its first paint, then one more turn of the event loop) it prints the monotonic clock in
// nanoseconds and leaves, as corvina-today does with CORVINA_BENCH_FIRST_FRAME=1;
// bench/first_frame_bench.py times the two side by side.
#include <QApplication>
#include <QEvent>
#include <QLabel>
#include <QVBoxLayout>
#include <QWidget>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace {

class FirstPaint : public QObject {
public:
    bool eventFilter(QObject*, QEvent* event) override {
        if (event->type() == QEvent::Paint && !m_seen) {
            m_seen = true;
            QMetaObject::invokeMethod(
                this,
                [] {
                    timespec now{};
                    clock_gettime(CLOCK_MONOTONIC, &now);
                    std::printf("%lld\n", static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec);
                    std::fflush(stdout);
                    std::_Exit(0);
                },
                Qt::QueuedConnection);
        }
        return false;
    }

private:
    bool m_seen = false;
};

} // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QWidget window;
    window.setWindowTitle(QStringLiteral("First frame floor"));
    window.setFixedSize(320, 30 + 5 + 50);
    auto* layout = new QVBoxLayout(&window);
    layout->addWidget(new QLabel(QStringLiteral("Inbox"), &window));
    FirstPaint watch;
    window.installEventFilter(&watch);
    window.show();
    return QApplication::exec();
}
