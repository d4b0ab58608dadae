#include "SegmentFilter.h"

#include "platform/PlistValue.h"

namespace corvina {

std::optional<qint64> SegmentFilter::folderStandardIdFor(qint64 segmented) {
    switch (segmented) {
    case 1:
        return 1;
    case 2:
        return 11;
    case 3:
        return 12;
    case 4:
        return 13;
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
    const std::optional<qint64> kind = folderStandardIdFor(segmented);
    if (!kind) {
        return std::nullopt;
    }
    ExtensionMessageList matching;
    for (const ExtensionMessagePtr& message : dataFromDisk) {
        // numeric equality; a kind that is absent or no number matches nothing
        const QVariant value = PlistValue::numberValue(message->folderStandardId());
        if (value.isValid() && value.toDouble() == static_cast<double>(*kind)) {
            matching.append(message);
        }
    }
    return cut(matching);
}

} // namespace corvina
