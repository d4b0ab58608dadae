#pragma once

#include <QList>
#include <memory>

namespace corvina {

// A list that its holder hands out for others to change in place (recipients and attachments are
// appended to after a record is built). nullptr is "no list", which is not the same as an empty one:
// records built from a dictionary leave their composing lists null, `init` makes them empty.
template <typename T> using MutableList = std::shared_ptr<QList<T>>;

template <typename T> MutableList<T> makeMutableList() {
    return std::make_shared<QList<T>>();
}

} // namespace corvina
