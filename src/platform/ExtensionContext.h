#pragma once

#include "ExtensionItem.h"

#include <QList>
#include <memory>

namespace corvina {

// One share request, as an extension receives it: the items to share, in order.
class ExtensionContext {
public:
    QList<ExtensionItemPtr> inputItems;
};

using ExtensionContextPtr = std::shared_ptr<ExtensionContext>;

} // namespace corvina
