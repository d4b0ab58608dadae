#include "SegmentFilter.h"

namespace corvina {

std::optional<SnapshotFormat::ListKind> SegmentFilter::listKindFor(qint64 segmented) {
    using Kind = SnapshotFormat::ListKind;
    switch (segmented) {
    case 1:
        return Kind::Inbox;
    case 2:
        return Kind::ToDo;
    case 3:
        return Kind::Memo;
    case 4:
        return Kind::Fourth;
    default:
        return std::nullopt;
    }
}

ExtensionMessageList SegmentFilter::cut(const ExtensionMessageList& rows) {
    return rows.size() > RowLimit ? rows.mid(0, RowLimit) : rows;
}

std::optional<ExtensionMessageList> SegmentFilter::dataToShow(const ExtensionMessageList& dataFromDisk,
                                                              qint64 segmented) {
    if (segmented == 0) {
        return cut(dataFromDisk);
    }
    const std::optional<SnapshotFormat::ListKind> kind = listKindFor(segmented);
    if (!kind) {
        return std::nullopt;
    }
    ExtensionMessageList matching;
    for (const ExtensionMessagePtr& message : dataFromDisk) {
        // numeric equality; a kind that is absent or no number matches nothing
        if (SnapshotFormat::isOfKind(message->folderStandardId(), *kind)) {
            matching.append(message);
        }
    }
    return cut(matching);
}

} // namespace corvina
