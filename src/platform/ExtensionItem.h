#pragma once

#include "AttributedString.h"
#include "ItemProvider.h"

#include <QList>
#include <memory>
#include <optional>

namespace corvina {

// One shared item of a share request: an optional content text, an optional title and its
// attachments. Built by the sharing side before the request is handed over, read afterwards.
class ExtensionItem {
public:
    std::optional<AttributedString> attributedContentText;
    std::optional<AttributedString> attributedTitle;
    QList<ItemProviderPtr> attachments;
};

using ExtensionItemPtr = std::shared_ptr<ExtensionItem>;

} // namespace corvina
