#include "WidgetTesting.h"

#include "platform/Dispatch.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>

namespace corvina::test {

bool drain(const std::function<bool()>& done, int timeoutMs) {
    QDeadlineTimer deadline(timeoutMs);
    while (!deadline.hasExpired()) {
        Dispatch::backgroundPool().waitForDone(50);
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        const bool idle =
            Dispatch::pendingMainBlocks() == 0 && Dispatch::backgroundPool().activeThreadCount() == 0;
        if (idle && (!done || done()))
            return true;
        if (idle && done)
            QThread::msleep(5); // animations advance on timers: let time pass
    }
    return false;
}

int opaquePixels(const QImage& image) {
    int n = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            n += qAlpha(image.pixel(x, y)) > 0;
    return n;
}

QImage renderTransparent(QWidget& widget, const QRegion& region) {
    QImage image(widget.size(), QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    widget.render(&image, QPoint(), region.isEmpty() ? QRegion(widget.rect()) : region,
                  QWidget::DrawChildren);
    return image;
}

ScopedSettings::ScopedSettings() {
    m_environment = std::make_unique<ScopedEnvironment>("XDG_CONFIG_HOME", m_dir.path().toUtf8());
}

} // namespace corvina::test
