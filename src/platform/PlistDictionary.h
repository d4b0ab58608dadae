#pragma once

#include <cstdlib>
#include <plist/plist.h>

namespace corvina {

// The one walk over a libplist dictionary's items, for the readers of a parsed list (PlistNode, and
// PropertyList's check of a whole list): each in its order, with the key taken apart from the value,
// because libplist aborts the program on a key of the wrong kind when asked for both at once.
class PlistDictionary {
public:
    // Calls `visit(key, value)` for each item of `dictionary`, with the item's key node (null where
    // libplist holds something that is no key) and its value, until `visit` answers false. False
    // when it was stopped so, true when every item was visited.
    template <typename Visit> static bool forEachItem(plist_t dictionary, Visit&& visit) {
        plist_dict_iter iter = nullptr;
        plist_dict_new_iter(dictionary, &iter);
        bool completed = true;
        for (;;) {
            plist_t value = nullptr;
            plist_dict_next_item(dictionary, iter, nullptr, &value);
            if (!value)
                break;
            plist_t key = plist_dict_item_get_key(value);
            if (key && plist_get_node_type(key) != PLIST_KEY)
                key = nullptr;
            if (!visit(key, value)) {
                completed = false;
                break;
            }
        }
        std::free(iter);
        return completed;
    }
};

} // namespace corvina
