#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>

// The org.freedesktop.Application interface of the test service (see appservice.cpp).
class AppService : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")

public:
    AppService(QString recordFile, int delayMilliseconds);

public slots:
    Q_SCRIPTABLE void Activate(const QVariantMap& platformData);
    Q_SCRIPTABLE void Open(const QStringList& uris, const QVariantMap& platformData);
    Q_SCRIPTABLE void ActivateAction(const QString& action, const QVariantList& parameter,
                                     const QVariantMap& platformData);

private:
    void record(const QString& method, const QStringList& uris, const QVariantMap& platformData);

    QString m_recordFile;
    int m_delay;
};
