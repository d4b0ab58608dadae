#pragma once

#include "PlistNode.h"
#include "PlistTree.h"

#include <QString>
#include <memory>

namespace corvina {

// A parsed property list, kept in a compact tree (PlistTree) for readers that take what they need
// straight from its nodes (PlistNode) instead of converting the whole list into Qt values first. Made by
// PropertyList::parse and PropertyList::parseFile, with the same checks and the same errors as
// PropertyList::read: a document that is ok() converts in full without a failure.
class PlistDocument {
public:
    PlistDocument() = default;
    PlistDocument(const PlistDocument&) = delete;
    PlistDocument& operator=(const PlistDocument&) = delete;
    PlistDocument(PlistDocument&& other) noexcept = default;
    PlistDocument& operator=(PlistDocument&& other) noexcept = default;
    ~PlistDocument() = default;

    // A document that owns `tree` (which holds at least its top object). The tree stays where it
    // is when the document moves, so nodes read from it stay valid.
    static PlistDocument adopt(std::unique_ptr<PlistTree> tree);
    // A failed read: no tree, the error text, and whether the file could not be read at all.
    static PlistDocument failure(const QString& error, bool unreadable = false);

    bool ok() const { return m_tree != nullptr; }
    PlistNode root() const { return m_tree ? PlistNode(m_tree.get(), 0) : PlistNode(); }
    // empty on success
    const QString& error() const { return m_error; }
    // parseFile only: the file could not be read at all (missing, a folder, no permission)
    bool unreadable() const { return m_unreadable; }

private:
    std::unique_ptr<PlistTree> m_tree;
    QString m_error;
    bool m_unreadable = false;
};

} // namespace corvina
