#include "PlistDocument.h"

#include <utility>

namespace corvina {

PlistDocument PlistDocument::adopt(std::unique_ptr<PlistTree> tree) {
    PlistDocument document;
    document.m_tree = std::move(tree);
    return document;
}

PlistDocument PlistDocument::failure(const QString& error, bool unreadable) {
    PlistDocument document;
    document.m_error = error;
    document.m_unreadable = unreadable;
    return document;
}

} // namespace corvina
