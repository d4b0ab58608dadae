#include "ListCommand.h"

#include "platform/PlistValue.h"
#include "platform/UserDefaults.h"
#include "shared/ConstVars.h"
#include "shared/ExtensionUtilities.h"
#include "widget/SegmentFilter.h"
#include "widget/SnapshotLoader.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace corvina {

namespace {

QString oneLine(QString text) {
    for (QChar& c : text) {
        if (c.category() == QChar::Other_Control || c == QChar::LineSeparator ||
            c == QChar::ParagraphSeparator) {
            c = QLatin1Char(' ');
        }
    }
    return text;
}

QJsonValue text(const QString& value) {
    return value.isNull() ? QJsonValue() : QJsonValue(value);
}

QJsonValue number(const QVariant& boxed) {
    const QVariant value = PlistValue::numberValue(boxed);
    if (!value.isValid()) {
        return QJsonValue();
    }
    if (value.typeId() == QMetaType::Double) {
        return value.toDouble();
    }
    return value.toLongLong();
}

} // namespace

QString ListCommand::plainText(const ExtensionMessageList& messages) {
    QString out;
    for (const ExtensionMessagePtr& message : messages) {
        out += oneLine(message->dateString()) + QLatin1Char('\t') + oneLine(message->from()) +
               QLatin1Char('\t') + oneLine(message->subject()) + QLatin1Char('\n');
    }
    return out;
}

QByteArray ListCommand::json(const ExtensionMessageList& messages) {
    QJsonArray rows;
    for (const ExtensionMessagePtr& message : messages) {
        const QDateTime date = message->date();
        const QVariant unread = PlistValue::numberValue(message->unread());
        rows.append(QJsonObject{
            {JsonKey::subject, text(message->subject())},
            {JsonKey::from, text(message->from())},
            {JsonKey::account, text(message->account())},
            {JsonKey::messageId, text(message->messageId())},
            {JsonKey::folderPath, text(message->folderPath())},
            {JsonKey::folderStandardId, number(message->folderStandardId())},
            {JsonKey::unread, unread.isValid() ? QJsonValue(unread.toDouble() != 0) : QJsonValue()},
            {JsonKey::date, date.isValid() ? QJsonValue(static_cast<double>(date.toMSecsSinceEpoch()) / 1000.0)
                                           : QJsonValue()},
            {JsonKey::dateString, text(message->dateString())},
            {JsonKey::hasAvatar, !message->image().isNull()},
        });
    }
    return QJsonDocument(rows).toJson(QJsonDocument::Indented);
}

int ListCommand::run(const Options& options, QTextStream& out, QTextStream& err) {
    const std::optional<QUrl> container = ExtensionUtilities::GroupPath();
    if (!container) {
        err << "corvina-today: no shared container (CORVINA_GROUP_CONTAINER is set but empty)\n";
    } else if (!QFileInfo(container->toLocalFile()).isDir()) {
        err << "corvina-today: no shared container at " << container->toLocalFile() << "\n";
    }
    ExtensionMessageList rows;
    if (container) {
        SnapshotLoader loader;
        const ExtensionMessageList dataFromDisk = loader.updateData();
        if (options.all) {
            rows = dataFromDisk;
        } else {
            // a stored choice without a list shows nothing, as the widget's first screen would
            rows = SegmentFilter::dataToShow(dataFromDisk,
                                             UserDefaults::integerForKey(ConstVars::segmentedKey))
                       .value_or(ExtensionMessageList());
        }
    }
    if (options.json) {
        out << json(rows);
    } else {
        out << plainText(rows);
    }
    out.flush();
    err.flush();
    return 0;
}

} // namespace corvina
