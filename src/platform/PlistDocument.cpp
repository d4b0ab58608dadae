#include "PlistDocument.h"

#include <plist/plist.h>
#include <utility>

namespace corvina {

PlistDocument::PlistDocument(PlistDocument&& other) noexcept
    : m_root(std::exchange(other.m_root, nullptr)), m_error(std::move(other.m_error)),
      m_unreadable(other.m_unreadable) {}

PlistDocument& PlistDocument::operator=(PlistDocument&& other) noexcept {
    if (this != &other) {
        if (m_root) {
            plist_free(static_cast<plist_t>(m_root));
        }
        m_root = std::exchange(other.m_root, nullptr);
        m_error = std::move(other.m_error);
        m_unreadable = other.m_unreadable;
    }
    return *this;
}

PlistDocument::~PlistDocument() {
    if (m_root) {
        plist_free(static_cast<plist_t>(m_root));
    }
}

PlistDocument PlistDocument::adopt(void* root) {
    PlistDocument document;
    document.m_root = root;
    return document;
}

PlistDocument PlistDocument::failure(const QString& error, bool unreadable) {
    PlistDocument document;
    document.m_error = error;
    document.m_unreadable = unreadable;
    return document;
}

} // namespace corvina
