#include "MailDesktop.h"

#include <QDir>
#include <QFile>
#include <gtest/gtest.h>

namespace corvina::test {

MailDesktop::MailDesktop() {
    QDir root(m_dir.path());
    for (const char* folder : {"config", "config-system", "system", "home", "empty-path"})
        root.mkpath(QLatin1String(folder));
    QFile::link(QStringLiteral("/usr/share/mime"), m_dir.filePath(QStringLiteral("system/mime")));
    set("XDG_DATA_DIRS", m_dir.filePath(QStringLiteral("system")));
    set("XDG_CONFIG_HOME", m_dir.filePath(QStringLiteral("config")));
    set("XDG_CONFIG_DIRS", m_dir.filePath(QStringLiteral("config-system")));
    set("HOME", m_dir.filePath(QStringLiteral("home")));
    // xdg-open looks up defaults only with a display; nothing connects to it here
    set("WAYLAND_DISPLAY", QStringLiteral("corvina-test-display"));
    // no browser is tried when the default application is missing
    set("BROWSER", QStringLiteral(":"));
    // xdg-utils asks the session bus whether a GNOME session runs
    set("DBUS_SESSION_BUS_ADDRESS", QStringLiteral("unix:path=") + m_dir.filePath(QStringLiteral("no-bus")));
    for (const char* name :
         {"XDG_CURRENT_DESKTOP", "XDG_SESSION_DESKTOP", "DESKTOP_SESSION", "KDE_FULL_SESSION",
          "KDE_SESSION_VERSION", "GNOME_DESKTOP_SESSION_ID", "MATE_DESKTOP_SESSION_ID", "LXQT_SESSION_CONFIG",
          "DESKTOP", "MAILER", "XDG_MENU_PREFIX", "DISPLAY", "XDG_ACTIVATION_TOKEN", "DESKTOP_STARTUP_ID"})
        m_environment.push_back(std::make_unique<ScopedEnvironment>(name, std::nullopt));
}

void MailDesktop::installDefaultClient() {
    m_host.installDesktopFile(QStringLiteral("corvina-test-mail.desktop"),
                              QStringLiteral("[Desktop Entry]\nType=Application\nName=Test mail client\n"
                                             "Exec=%1 %2 %u\n")
                                  .arg(FakeHostApp::recorderProgram(), m_host.recordFile())
                                  .toUtf8());
    setDefault(QStringLiteral("message/rfc822"), QStringLiteral("corvina-test-mail.desktop"));
    setDefault(QStringLiteral("x-scheme-handler/mailto"), QStringLiteral("corvina-test-mail.desktop"));
}

void MailDesktop::installTextEditor() {
    m_host.installDesktopFile(QStringLiteral("corvina-test-editor.desktop"),
                              QStringLiteral("[Desktop Entry]\nType=Application\nName=Test text editor\n"
                                             "MimeType=text/plain;\nExec=%1 %2 --text-editor %F\n")
                                  .arg(FakeHostApp::recorderProgram(), m_host.recordFile())
                                  .toUtf8());
    setDefault(QStringLiteral("text/plain"), QStringLiteral("corvina-test-editor.desktop"));
}

void MailDesktop::setDefault(const QString& mimeType, const QString& desktopFile) {
    if (desktopFile.isEmpty())
        m_defaults.remove(mimeType);
    else
        m_defaults.insert(mimeType, desktopFile);
    writeDefaults();
}

void MailDesktop::writeDefaults() {
    QFile list(m_dir.filePath(QStringLiteral("config/mimeapps.list")));
    ASSERT_TRUE(list.open(QIODevice::WriteOnly));
    QByteArray text = "[Default Applications]\n";
    for (auto it = m_defaults.cbegin(); it != m_defaults.cend(); ++it)
        text += (it.key() + u'=' + it.value() + u'\n').toUtf8();
    list.write(text);
}

QString MailDesktop::file(const QString& name, const QByteArray& content) const {
    const QString path = m_dir.filePath(name);
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly)) << path.toStdString();
    file.write(content);
    return path;
}

QString MailDesktop::message(const QString& name) const {
    return file(name, "From: Ann <ann@example.org>\nTo: bob@example.org\nSubject: Hello\n"
                      "Message-ID: <abc.123@example.org>\nDate: Thu, 2 May 2024 10:00:00 +0000\n\nHi Bob\n");
}

QString MailDesktop::messageTakenForText(const QString& name) const {
    return file(name, "DKIM-Signature: v=1; a=rsa-sha256; d=example.org; s=mail; bh=AAAA; b=BBBB\n"
                      "From: Ann <ann@example.org>\nTo: bob@example.org\nSubject: Hello\n"
                      "Message-ID: <abc.123@example.org>\nDate: Thu, 2 May 2024 10:00:00 +0000\n\nHi Bob\n");
}

QString MailDesktop::recorderCommand() const {
    return FakeHostApp::recorderProgram() + u' ' + m_host.recordFile();
}

void MailDesktop::set(const char* name, const QString& value) {
    m_environment.push_back(std::make_unique<ScopedEnvironment>(name, value.toUtf8()));
}

} // namespace corvina::test
