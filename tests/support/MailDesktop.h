#pragma once

#include "support/FakeHostApp.h"
#include "support/ScopedEnvironment.h"

#include <QList>
#include <QMap>
#include <QProcessEnvironment>
#include <QString>
#include <QTemporaryDir>
#include <memory>
#include <vector>

namespace corvina::test {

// A desktop of the test's own, in the generic mode of xdg-utils (no desktop environment named):
// a desktop file starting the recorder is the default application for message/rfc822 and for
// mailto: URLs, found through $XDG_CONFIG_HOME/mimeapps.list, and nothing installed on the
// machine (its applications, defaults, browsers, mailcap) can answer instead. The MIME database
// is the machine's, so that xdg-mime tells a message file's type.
//
// The variables are this process's for the object's life (and so its children's); xdg-utils'
// question whether a GNOME session runs goes to a bus that is not there.
class MailDesktop {
public:
    MailDesktop();

    // The recorder as the default for messages and mailto: URLs.
    void installDefaultClient();
    // A stand-in text editor (the recorder, its first argument "--text-editor") as the default for
    // text/plain, as on many desktops.
    void installTextEditor();
    // `desktopFile` as the default application of `mimeType` in mimeapps.list; none when empty.
    void setDefault(const QString& mimeType, const QString& desktopFile);

    // A file of `content` in the desktop's folder; answers its path.
    QString file(const QString& name, const QByteArray& content = "content\n") const;
    // A small message file.
    QString message(const QString& name) const;
    // A message whose first header is a DKIM signature, as much real mail has it: a type sniffer
    // (file(1)) takes it for text/plain.
    QString messageTakenForText(const QString& name) const;

    QString recorderCommand() const;
    QString path(const QString& name) const { return m_dir.filePath(name); }
    QList<HostLaunch> launches() const { return m_host.launches(); }
    QList<HostLaunch> waitForLaunches(int count, int timeoutMs = 10000) const {
        return m_host.waitForLaunches(count, timeoutMs);
    }
    // The recorder's desktop file's folder: the data home of this desktop.
    const FakeHostApp& host() const { return m_host; }
    FakeHostApp& host() { return m_host; }

private:
    void set(const char* name, const QString& value);
    void writeDefaults();

    FakeHostApp m_host; // XDG_DATA_HOME with the applications folder
    QTemporaryDir m_dir;
    QMap<QString, QString> m_defaults; // MIME type -> desktop file
    std::vector<std::unique_ptr<ScopedEnvironment>> m_environment;
};

} // namespace corvina::test
