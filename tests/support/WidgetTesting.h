#pragma once

#include "support/FakeHostApp.h"
#include "support/ScopedEnvironment.h"
#include "support/TempContainer.h"

#include <QImage>
#include <QRegion>
#include <QTemporaryDir>
#include <QWidget>
#include <functional>
#include <memory>

namespace corvina::test {

// Runs the main queue and waits for the background pool until nothing is left queued and `done`
// holds (or, without `done`, until the queues are empty), bounded by `timeoutMs`. True when it
// got there in time.
bool drain(const std::function<bool()>& done = {}, int timeoutMs = 5000);

// Pixels of `image` that are not fully transparent.
int opaquePixels(const QImage& image);
// `widget` (or the part `region` of it) drawn on a transparent image.
QImage renderTransparent(QWidget& widget, const QRegion& region = QRegion());

// Settings of their own for a test (the "segmented" choice and the window position), through
// XDG_CONFIG_HOME.
class ScopedSettings {
public:
    ScopedSettings();

private:
    QTemporaryDir m_dir;
    std::unique_ptr<ScopedEnvironment> m_environment;
};

} // namespace corvina::test
