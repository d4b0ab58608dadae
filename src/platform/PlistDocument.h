#pragma once

#include "PlistNode.h"

#include <QString>

namespace corvina {

// A property list parsed by libplist and kept in libplist's own form, for readers that take what
// they need straight from its nodes (PlistNode) instead of converting the whole list into Qt values
// first. Made by PropertyList::parse and PropertyList::parseFile, with the same checks and the same
// errors as PropertyList::read: a document that is ok() converts in full without a failure.
class PlistDocument {
public:
    PlistDocument() = default;
    PlistDocument(const PlistDocument&) = delete;
    PlistDocument& operator=(const PlistDocument&) = delete;
    PlistDocument(PlistDocument&& other) noexcept;
    PlistDocument& operator=(PlistDocument&& other) noexcept;
    ~PlistDocument();

    // A document that owns the libplist tree `root` (null for none).
    static PlistDocument adopt(void* root);
    // A failed read: no tree, the error text, and whether the file could not be read at all.
    static PlistDocument failure(const QString& error, bool unreadable = false);

    bool ok() const { return m_root != nullptr; }
    PlistNode root() const { return PlistNode(m_root); }
    // empty on success
    const QString& error() const { return m_error; }
    // parseFile only: the file could not be read at all (missing, a folder, no permission)
    bool unreadable() const { return m_unreadable; }

private:
    void* m_root = nullptr;
    QString m_error;
    bool m_unreadable = false;
};

} // namespace corvina
