#pragma once

#include "model/ExtensionMessage.h"
#include "model/SnapshotFormat.h"

#include <optional>

namespace corvina {

// Which of the loaded messages the widget shows: the list chosen in the header, at most ten rows.
//
// The stored "segmented" setting (the chosen header segment plus one) selects by the message's
// list kind (SnapshotFormat::ListKind): 1 Inbox, 2 To Do, 3 Memo, 4 the fourth list. 0, the setting
// never written, shows every folder unfiltered, although the header then shows "Inbox" selected; 4
// has no segment that writes it. Both are deliberate and kept.
class SegmentFilter {
public:
    static constexpr qsizetype RowLimit = 10;

    // The rows for `segmented`: filtered (or not, for 0) and cut to RowLimit, newest kept.
    // Nothing for a value without a list (negative, or above 4): the caller keeps what it shows.
    static std::optional<ExtensionMessageList> dataToShow(const ExtensionMessageList& dataFromDisk,
                                                          qint64 segmented);

    // The list that `segmented` selects; nothing for 0 and for values without a list.
    static std::optional<SnapshotFormat::ListKind> listKindFor(qint64 segmented);

    // The first RowLimit messages of `rows`.
    static ExtensionMessageList cut(const ExtensionMessageList& rows);
};

} // namespace corvina
