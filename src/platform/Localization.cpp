#include "Localization.h"

#include <QMutex>
#include <QMutexLocker>
#include <QTranslator>
#include <memory>

namespace corvina {

namespace {

// Context under which the .ts files list their messages.
constexpr const char* Context = "corvina";

struct Table {
    QMutex mutex;
    bool loaded = false;
    QLocale locale;
    std::shared_ptr<QTranslator> translator;
};

Table& table() {
    static Table t;
    return t;
}

std::shared_ptr<QTranslator> load(const QLocale& locale) {
    auto translator = std::make_shared<QTranslator>();
    // the tables are compiled into the program as resources under :/i18n
    if (!translator->load(locale, QStringLiteral("corvina"), QStringLiteral("_"), QStringLiteral(":/i18n"))) {
        return nullptr;
    }
    return translator;
}

std::shared_ptr<QTranslator> current() {
    Table& t = table();
    QMutexLocker lock(&t.mutex);
    if (!t.loaded) {
        t.locale = QLocale();
        t.translator = load(t.locale);
        t.loaded = true;
    }
    return t.translator;
}

} // namespace

QString Localization::text(const QString& key) {
    const std::shared_ptr<QTranslator> translator = current();
    if (!translator) {
        return key;
    }
    const QString translated = translator->translate(Context, key.toUtf8().constData());
    return translated.isEmpty() ? key : translated;
}

QLocale Localization::locale() {
    current();
    QMutexLocker lock(&table().mutex);
    return table().locale;
}

void Localization::setLocale(const QLocale& locale) {
    std::shared_ptr<QTranslator> translator = load(locale);
    Table& t = table();
    QMutexLocker lock(&t.mutex);
    t.locale = locale;
    t.translator = std::move(translator);
    t.loaded = true;
}

} // namespace corvina
