#pragma once

#include <QString>
#include <QUrl>
#include <optional>

namespace corvina {

// The folder that the mail application and its extensions share.
//
// CORVINA_GROUP_CONTAINER set and not empty: that folder. Set but empty: no container at all (the
// way a process without access to the shared folder is told so). Unset:
// $XDG_DATA_HOME/group-containers/<group identifier> ($XDG_DATA_HOME defaults to ~/.local/share).
// The folder is neither created nor checked: callers handle a folder that is not there.
class GroupContainer {
public:
    // The file URL of the container of `groupIdentifier`, or nothing.
    static std::optional<QUrl> containerURL(const QString& groupIdentifier);

    // The environment variable that chooses the folder; `corvina-today --container DIR` sets it.
    static const char* const EnvironmentVariable;
};

} // namespace corvina
