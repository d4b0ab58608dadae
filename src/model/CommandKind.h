#pragma once

#include <QString>
#include <array>
#include <optional>

namespace corvina {

// What a command URL asks the mail application to do: the word that stands where a host would,
// "corvina://archive?...". The widget's URL builder writes these names and the bridge's parser reads
// them back into a kind; from there the bridge carries the kind itself, never its name, up to the
// notification that reports the command.
//
//   Open, Reply, Archive, Delete  about one message (the query of CommandURL::messageCommand)
//   Compose                       a draft (ExtensionMessage::queryUrl)
//   Message, Send                 known to the mail application; the bridge refuses them
enum class CommandKind { Open, Reply, Archive, Delete, Compose, Message, Send };

// Every kind, in the order of the enum: for whoever has to try them all.
inline constexpr std::array<CommandKind, 7> AllCommandKinds{
    CommandKind::Open,    CommandKind::Reply,   CommandKind::Archive, CommandKind::Delete,
    CommandKind::Compose, CommandKind::Message, CommandKind::Send};

// The name a command URL gives `kind` ("open", "reply", "archive", "delete", "compose", "message",
// "send"): the one place that spells them.
QString commandName(CommandKind kind);

// The kind a command URL's name stands for; nothing for a name that is none of them. Names are
// compared exactly, as the mail application compares them: "Archive" is no command.
std::optional<CommandKind> commandKindNamed(const QString& name);

} // namespace corvina
