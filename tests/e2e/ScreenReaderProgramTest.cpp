// corvina-today as a screen reader gets it: a real X server (Xvfb), a private session bus with the
// desktop's accessibility bus on it (at-spi-bus-launcher, and the registry that tells applications
// who listens; support/AccessibilityDesktop, one for the test program), the real program with Qt's AT-SPI
// bridge on, and a Python client of the accessibility bus (tests/e2e/atspi_tree.py, with pyatspi, as screen
// readers use it) that prints the program's tree and the focus events the keys cause.
#include "support/AccessibilityDesktop.h"
#include "support/ProcessStop.h"
#include "support/TempContainer.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>
#include <QThread>
#include <functional>
#include <gtest/gtest.h>

using namespace corvina::test;

namespace {

const QString kReaderAccount = QStringLiteral("ann@example.org");
const QString kKeys = QStringLiteral("Enter opens, R replies, A archives, Delete deletes");
// Bounds for a machine kept busy: every wait ends as soon as what it waits for is there.
constexpr int kScriptSeconds = 60;

QStringList roles(const QJsonArray& nodes) {
    QStringList out;
    for (const QJsonValue& n : nodes)
        out << n[QLatin1String("role")].toString();
    return out;
}

QStringList names(const QJsonArray& nodes) {
    QStringList out;
    for (const QJsonValue& n : nodes)
        out << n[QLatin1String("name")].toString();
    return out;
}

// A list as one line, so that a failure reads as text.
std::string line(const QStringList& list) {
    return list.join(QStringLiteral(" | ")).toStdString();
}

bool hasState(const QJsonValue& node, const QString& state) {
    return node[QLatin1String("states")].toArray().contains(state);
}

// Every node of `tree` with `role` (and `name`, when given), depth first.
void collect(const QJsonValue& tree, const QString& role, const QString& name, QList<QJsonObject>& out) {
    if (tree[QLatin1String("role")].toString() == role &&
        (name.isNull() || tree[QLatin1String("name")].toString() == name))
        out << tree.toObject();
    for (const QJsonValue& child : tree[QLatin1String("children")].toArray())
        collect(child, role, name, out);
}

QList<QJsonObject> find(const QJsonValue& tree, const QString& role, const QString& name = QString()) {
    QList<QJsonObject> out;
    collect(tree, role, name, out);
    return out;
}

class ScreenReaderProgram : public ::testing::Test {
protected:
    void SetUp() override {
        QString error;
        desktop = AccessibilityDesktop::shared(&error);
        ASSERT_NE(desktop, nullptr) << error.toStdString();

        container.writeAccounts({TempContainer::account(kReaderAccount)});
        container.writeSnapshot(kReaderAccount, QStringLiteral("inbox.plist"),
                                TempContainer::inboxMessages(kReaderAccount, {"m0", "m1", "m2"}));
        QProcessEnvironment widgetEnv = desktop->programEnvironment();
        widgetEnv.insert(QStringLiteral("XDG_CONFIG_HOME"), config.path());
        widget.setProcessEnvironment(widgetEnv);
        widget.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        widget.start(QStringLiteral(CORVINA_TODAY_BINARY),
                     {QStringLiteral("--container"), container.root(), QStringLiteral("--interval"),
                      QStringLiteral("3600")});
        ASSERT_TRUE(widget.waitForStarted(5000));
        windowId = desktop->x().findWindow(QStringLiteral("Corvina Today"));
        ASSERT_FALSE(windowId.isEmpty()) << "the widget's window did not appear";
        clientEnv = widgetEnv;
    }

    void TearDown() override { stopProcess(widget, 3000); }

    // Runs the client; its JSON lines by their first key.
    QMap<QString, QJsonValue> runClient(int rows, const QStringList& keys = {}) {
        QProcess client;
        client.setProcessEnvironment(clientEnv);
        QStringList arguments{QStringLiteral(CORVINA_SOURCE_DIR "/tests/e2e/atspi_tree.py"),
                              QStringLiteral("--app"),
                              QStringLiteral("corvina-today"),
                              QStringLiteral("--rows"),
                              QString::number(rows),
                              QStringLiteral("--timeout"),
                              QString::number(kScriptSeconds)};
        if (!keys.isEmpty())
            arguments << QStringLiteral("--window") << windowId << QStringLiteral("--keys")
                      << keys.join(u',');
        client.start(QStringLiteral(CORVINA_SYSTEM_PYTHON), arguments);
        EXPECT_TRUE(client.waitForFinished((kScriptSeconds + 30) * 1000)) << "the client did not end";
        const QByteArray err = client.readAllStandardError();
        EXPECT_EQ(client.exitCode(), 0) << err.toStdString();
        QMap<QString, QJsonValue> out;
        for (const QByteArray& line : client.readAllStandardOutput().split('\n')) {
            const QJsonObject object = QJsonDocument::fromJson(line).object();
            if (!object.isEmpty())
                out.insert(object.begin().key(), object.begin().value());
        }
        return out;
    }

    AccessibilityDesktop* desktop = nullptr;
    TempContainer container;
    QTemporaryDir config;
    QProcess widget;
    QString windowId;
    QProcessEnvironment clientEnv;
};

} // namespace

TEST_F(ScreenReaderProgram, HearsAListOfTheMessagesEachWithItsButtonsInTheOrderDrawn) {
    const QMap<QString, QJsonValue> out = runClient(3);
    ASSERT_TRUE(out.contains(QStringLiteral("tree")));
    const QJsonValue tree = out.value(QStringLiteral("tree"));
    EXPECT_EQ(tree[QLatin1String("role")].toString(), QStringLiteral("application"));
    // The window, by its title.
    EXPECT_EQ(line(names(tree[QLatin1String("children")].toArray())), "Corvina Today")
        << QJsonDocument(tree.toObject()).toJson().toStdString();

    const QList<QJsonObject> lists = find(tree, QStringLiteral("list"), QStringLiteral("Messages"));
    ASSERT_EQ(lists.size(), 1) << QJsonDocument(tree.toObject()).toJson().toStdString();
    const QJsonArray items = lists.at(0)[QLatin1String("children")].toArray();
    ASSERT_EQ(items.size(), 3);
    const QStringList ids{"m0", "m1", "m2"};
    for (int i = 0; i < 3; ++i) {
        const QJsonValue item = items.at(i);
        EXPECT_EQ(item[QLatin1String("role")].toString(), QStringLiteral("list item")) << i;
        // Sender, subject, date: the date as the row shows it, not checked here beyond being there.
        const QString name = item[QLatin1String("name")].toString();
        const QString start = QStringLiteral("Sender %1, Subject %1, ").arg(ids.at(i));
        EXPECT_TRUE(name.startsWith(start) && name.size() > start.size()) << name.toStdString();
        const QString description = item[QLatin1String("description")].toString();
        EXPECT_TRUE(description.endsWith(kKeys)) << description.toStdString();
        EXPECT_TRUE(description.startsWith(QStringLiteral("Read")) ||
                    description.startsWith(QStringLiteral("Unread")))
            << description.toStdString();
        EXPECT_TRUE(hasState(item, QStringLiteral("selectable")));
        const QJsonArray buttons = item[QLatin1String("children")].toArray();
        EXPECT_EQ(line(roles(buttons)), "push button | push button | push button") << i;
        // Left to right, as drawn.
        EXPECT_EQ(line(names(buttons)), "Reply | Archive | Delete") << i;
        for (const QJsonValue& button : buttons) {
            EXPECT_EQ(button[QLatin1String("description")].toString(),
                      QStringLiteral("The message from Sender %1: Subject %1").arg(ids.at(i)));
            EXPECT_TRUE(button[QLatin1String("children")].toArray().isEmpty());
        }
    }
    // The header's lists: a tab list of three tabs, the one shown selected.
    const QList<QJsonObject> tabLists = find(tree, QStringLiteral("page tab list"), QStringLiteral("List"));
    ASSERT_EQ(tabLists.size(), 1);
    EXPECT_EQ(tabLists.at(0)[QLatin1String("description")].toString(),
              QStringLiteral("Which messages are shown; keys 1, 2 and 3"));
    const QJsonArray tabs = tabLists.at(0)[QLatin1String("children")].toArray();
    EXPECT_EQ(line(roles(tabs)), "page tab | page tab | page tab");
    EXPECT_EQ(line(names(tabs)), "Inbox | To Do | Memo");
    ASSERT_EQ(tabs.size(), 3);
    EXPECT_TRUE(hasState(tabs.at(0), QStringLiteral("selected")));
    EXPECT_FALSE(hasState(tabs.at(1), QStringLiteral("selected")));
    EXPECT_FALSE(hasState(tabs.at(2), QStringLiteral("selected")));
    EXPECT_EQ(tabs.at(1)[QLatin1String("description")].toString(),
              QStringLiteral("Shows the list To Do (key 2)"));
}

TEST_F(ScreenReaderProgram, TheKeysMoveTheFocusFromMessageToMessage) {
    const QStringList steps{"Down", "Down", "Up", "End", "Tab+Tab"};
    const QMap<QString, QJsonValue> out = runClient(3, steps);
    ASSERT_TRUE(out.contains(QStringLiteral("results")));
    const QJsonArray results = out.value(QStringLiteral("results")).toArray();
    ASSERT_EQ(results.size(), steps.size());
    // What each step made a screen reader hear: the role and the start of the name (sender, subject).
    QList<QStringList> heard;
    for (const QJsonValue& r : results) {
        QStringList focus;
        for (const QJsonValue& f : r[QLatin1String("focus")].toArray())
            focus << f[QLatin1String("role")].toString() + QStringLiteral(": ") +
                         f[QLatin1String("name")].toString().section(QStringLiteral(", "), 0, 1);
        heard << focus;
    }
    EXPECT_EQ(line(heard.at(0)), "list item: Sender m1, Subject m1");
    EXPECT_EQ(line(heard.at(1)), "list item: Sender m2, Subject m2");
    EXPECT_EQ(line(heard.at(2)), "list item: Sender m1, Subject m1");
    EXPECT_EQ(line(heard.at(3)), "list item: Sender m2, Subject m2");
    // Tab to the header's lists and back: the focus ends on the row the keys act on, not on the
    // list around it.
    EXPECT_EQ(line(heard.at(4)), "page tab list: List | list: Messages | list item: Sender m2, Subject m2");
}
