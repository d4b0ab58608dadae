// Every text the Accounts window shows has its German and French translation: the texts are read
// from the window's sources (each Localization::text with a literal), so a text added later
// without its translations fails here, and each translation is looked up through the table the
// build compiled in, as the window does.
#include "platform/Localization.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QRegularExpression>
#include <QXmlStreamReader>
#include <gtest/gtest.h>

namespace corvina::test {
namespace {

// The window's own sources and the bridge's classes whose words it shows as they are.
QStringList accountsWindowSources() {
    const QString root = QStringLiteral(CORVINA_SOURCE_DIR);
    QStringList files;
    const QDir folder(root + QStringLiteral("/src/app/accounts"));
    for (const QString& name :
         folder.entryList({QStringLiteral("*.cpp"), QStringLiteral("*.h")}, QDir::Files))
        files << folder.filePath(name);
    files << root + QStringLiteral("/src/bridge/service/BridgeUnit.cpp");
    return files;
}

// The C++ literal's text: its escapes (\" \\ \n) undone.
QString unescaped(const QString& literal) {
    QString text;
    for (qsizetype i = 0; i < literal.size(); ++i) {
        if (literal.at(i) == u'\\' && i + 1 < literal.size()) {
            ++i;
            text += literal.at(i) == u'n' ? QChar(u'\n') : literal.at(i);
        } else {
            text += literal.at(i);
        }
    }
    return text;
}

// Each key given to Localization::text as a literal (adjacent literals joined, as the compiler
// joins them; a QStringLiteral around them too), in the order met.
QStringList keysIn(const QString& source) {
    static const QRegularExpression call(
        QStringLiteral(R"re(Localization::text\(\s*(?:QStringLiteral\(\s*)?((?:"(?:[^"\\]|\\.)*"\s*)+))re"));
    static const QRegularExpression literal(QStringLiteral(R"re("((?:[^"\\]|\\.)*)")re"));
    QStringList keys;
    for (auto found = call.globalMatch(source); found.hasNext();) {
        const QString literals = found.next().captured(1);
        QString key;
        for (auto part = literal.globalMatch(literals); part.hasNext();)
            key += unescaped(part.next().captured(1));
        keys << key;
    }
    return keys;
}

// The finished translations of a catalogue, by source text.
QHash<QString, QString> catalogue(const QString& language) {
    QFile file(QStringLiteral(CORVINA_SOURCE_DIR "/resources/translations/corvina_%1.ts").arg(language));
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << file.fileName().toStdString();
    QHash<QString, QString> table;
    QXmlStreamReader xml(&file);
    QString source;
    while (!xml.atEnd()) {
        if (xml.readNext() != QXmlStreamReader::StartElement)
            continue;
        if (xml.name() == QLatin1String("source")) {
            source = xml.readElementText();
        } else if (xml.name() == QLatin1String("translation")) {
            const bool unfinished =
                xml.attributes().value(QLatin1String("type")) == QLatin1String("unfinished");
            const QString translation = xml.readElementText();
            if (!unfinished && !translation.isEmpty())
                table.insert(source, translation);
        }
    }
    EXPECT_FALSE(xml.hasError()) << xml.errorString().toStdString();
    return table;
}

TEST(AccountsTranslations, TheTextsAreFoundInTheSources) {
    QStringList keys;
    for (const QString& path : accountsWindowSources()) {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
        keys << keysIn(QString::fromUtf8(file.readAll()));
    }
    // The reader itself: a split literal and an escaped quote come out as the compiler makes them.
    EXPECT_EQ(keysIn(QStringLiteral("Localization::text(\"Keep \"\n  \"my \\\"mail\\\"\")")),
              QStringList{QStringLiteral("Keep my \"mail\"")});
    EXPECT_TRUE(keys.contains(QStringLiteral("Keep my mail current")));
    EXPECT_TRUE(keys.contains(QStringLiteral("Mail accounts")));
    EXPECT_GT(keys.size(), 50);
}

class AccountsTranslationsIn : public ::testing::TestWithParam<const char*> {
protected:
    void SetUp() override { m_before = Localization::locale(); }
    void TearDown() override { Localization::setLocale(m_before); }

private:
    QLocale m_before;
};

TEST_P(AccountsTranslationsIn, EveryTextOfTheWindowIsTranslated) {
    const QString language = QString::fromLatin1(GetParam());
    const QHash<QString, QString> table = catalogue(language);
    Localization::setLocale(QLocale(language));
    QStringList missing;
    for (const QString& path : accountsWindowSources()) {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
        for (const QString& key : keysIn(QString::fromUtf8(file.readAll()))) {
            const auto found = table.constFind(key);
            if (found == table.constEnd()) {
                missing << QFileInfo(path).fileName() + QStringLiteral(": ") + key;
                continue;
            }
            // As the window gets it: from the table compiled into the program.
            EXPECT_EQ(Localization::text(key), found.value()) << key.toStdString();
            // The placeholders survive the translation.
            for (const QString& mark : {QStringLiteral("%1"), QStringLiteral("%2"), QStringLiteral("%3")})
                EXPECT_EQ(key.contains(mark), found.value().contains(mark)) << key.toStdString();
        }
    }
    EXPECT_EQ(missing, QStringList()) << "no " << language.toStdString() << " translation for:\n"
                                      << missing.join(u'\n').toStdString();
}

INSTANTIATE_TEST_SUITE_P(GermanAndFrench, AccountsTranslationsIn, ::testing::Values("de", "fr"));

} // namespace
} // namespace corvina::test
