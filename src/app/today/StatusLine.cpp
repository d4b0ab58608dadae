#include "StatusLine.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace corvina {

namespace {

// The newest row's sender and subject, "Ann Example: Lunch on Friday".
QString senderAndSubject(const ExtensionMessage& message) {
    return ListCommand::oneLine(message.from()) + QStringLiteral(": ") +
           ListCommand::oneLine(message.subject());
}

// What is said of a missing shared folder, to a person looking at a bar.
QString missingFolderText(const ListCommand::Reading& reading) {
    return QStringLiteral("No shared folder: is the mail application (or corvina-mail-bridge) running? (") +
           reading.missingFolder + QLatin1Char(')');
}

QByteArray waybar(const ListCommand::Reading& reading) {
    const qsizetype count = reading.rows.size();
    QString state;
    QString tooltip;
    if (!reading.missingFolder.isEmpty()) {
        state = StatusLine::State::noFolder;
        tooltip = missingFolderText(reading).toHtmlEscaped();
    } else if (count == 0) {
        state = StatusLine::State::none;
        tooltip = QStringLiteral("No messages");
    } else {
        state = StatusLine::State::mail;
        QStringList lines;
        for (qsizetype i = 0; i < std::min<qsizetype>(count, StatusLine::tooltipRows); ++i) {
            // Waybar reads the tooltip as Pango markup: a sender "<ann@example.org>" or a subject
            // "Q&A" would otherwise be taken for markup, or break it.
            lines << senderAndSubject(*reading.rows.at(i)).toHtmlEscaped();
        }
        if (count > StatusLine::tooltipRows) {
            lines << QStringLiteral("and %1 more").arg(count - StatusLine::tooltipRows);
        }
        tooltip = lines.join(QLatin1Char('\n'));
    }
    const QJsonObject object{{QStringLiteral("text"), QString::number(count)},
                             {QStringLiteral("tooltip"), tooltip},
                             {QStringLiteral("class"), state},
                             {QStringLiteral("alt"), state}};
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QByteArray text(const ListCommand::Reading& reading) {
    if (!reading.missingFolder.isEmpty()) {
        return QByteArrayLiteral("no shared folder");
    }
    if (reading.rows.isEmpty()) {
        return QByteArrayLiteral("0");
    }
    return (QString::number(reading.rows.size()) + QStringLiteral(" · ") +
            senderAndSubject(*reading.rows.first()))
        .toUtf8();
}

} // namespace

std::optional<StatusLine::Format> StatusLine::formatNamed(const QString& name) {
    const qsizetype at = formatNames.indexOf(name);
    constexpr Format formats[] = {Format::Json, Format::Waybar, Format::Text};
    if (at < 0) {
        return std::nullopt;
    }
    return formats[at];
}

QByteArray StatusLine::line(Format format, const ListCommand::Reading& reading) {
    QByteArray out;
    switch (format) {
    case Format::Json:
        out = ListCommand::json(reading.rows, true);
        break;
    case Format::Waybar:
        out = waybar(reading);
        break;
    case Format::Text:
        out = text(reading);
        break;
    }
    out += '\n';
    return out;
}

} // namespace corvina
