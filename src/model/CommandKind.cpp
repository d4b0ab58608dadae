#include "CommandKind.h"

namespace corvina {

QString commandName(CommandKind kind) {
    switch (kind) {
    case CommandKind::Open:
        return QStringLiteral("open");
    case CommandKind::Reply:
        return QStringLiteral("reply");
    case CommandKind::Archive:
        return QStringLiteral("archive");
    case CommandKind::Delete:
        return QStringLiteral("delete");
    case CommandKind::Compose:
        return QStringLiteral("compose");
    case CommandKind::Message:
        return QStringLiteral("message");
    case CommandKind::Send:
        return QStringLiteral("send");
    }
    return QString();
}

std::optional<CommandKind> commandKindNamed(const QString& name) {
    for (const CommandKind kind : AllCommandKinds) {
        if (commandName(kind) == name)
            return kind;
    }
    return std::nullopt;
}

} // namespace corvina
