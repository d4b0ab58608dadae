#include "WindowModule.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLibrary>
#include <QTextStream>
#include <mutex>

namespace corvina {

namespace {

// The folders the module may be in: the program's own, then the installed one.
QStringList candidates() {
    const QString program = QFile::symLinkTarget(QStringLiteral("/proc/self/exe"));
    const QDir folder = QFileInfo(program).absoluteDir();
    return {folder.filePath(WindowModule::fileName),
            QDir::cleanPath(folder.filePath(QStringLiteral(WINDOW_MODULE_DIR "/")) + QLatin1Char('/') +
                            WindowModule::fileName)};
}

} // namespace

void* WindowModule::resolve(const char* symbol, QString* error) {
    // Loaded once, and never unloaded: the widget runs in it until the program ends.
    static QLibrary* library = nullptr;
    static QString loadError;
    static std::once_flag once;
    std::call_once(once, [] {
        const QStringList paths = candidates();
        for (const QString& path : paths) {
            if (!QFileInfo::exists(path)) {
                continue;
            }
            auto* candidate = new QLibrary(path);
            if (candidate->load()) {
                library = candidate;
                return;
            }
            loadError = QStringLiteral("cannot load %1: %2").arg(path, candidate->errorString());
            delete candidate;
            return;
        }
        loadError = QStringLiteral("its window's half (%1) is missing: looked in %2")
                        .arg(WindowModule::fileName, paths.join(QStringLiteral(" and ")));
    });
    if (library == nullptr) {
        *error = loadError;
        return nullptr;
    }
    void* function = reinterpret_cast<void*>(library->resolve(symbol));
    if (function == nullptr) {
        *error = QStringLiteral("%1 has no %2: %3")
                     .arg(library->fileName(), QString::fromLatin1(symbol), library->errorString());
    }
    return function;
}

int WindowModule::runWidget(int argc, char* argv[]) {
    QString error;
    using Main = int (*)(int, char**);
    auto widgetMain = reinterpret_cast<Main>(resolve("corvina_today_widget_main", &error));
    if (widgetMain == nullptr) {
        QTextStream(stderr) << "corvina-today: cannot show the widget: " << error
                            << "; reinstall the corvina-today package\n";
        return 1;
    }
    return widgetMain(argc, argv);
}

PictureHeader::Header WindowModule::inspectOtherFormat(const QByteArray& bytes, qint64 maximumPixels) {
    static PictureHeader::Reader reader = [] {
        QString error;
        using Door = PictureHeader::Reader (*)();
        auto door = reinterpret_cast<Door>(resolve("corvina_today_picture_reader", &error));
        if (door == nullptr) {
            QTextStream(stderr) << "corvina-today: cannot read avatars other than PNG (they show as none): "
                                << error << "\n";
            return PictureHeader::Reader(nullptr);
        }
        return door();
    }();
    return reader ? reader(bytes, maximumPixels) : PictureHeader::Header{};
}

} // namespace corvina
