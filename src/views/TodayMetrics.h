#pragma once

namespace corvina {

// The widget's measurements, in points: everything that lays out the root view, the table or a row
// takes them from here.
struct TodayMetrics {
    // The width of the root view, the header, the table and each row.
    static constexpr int width = 320;
    static constexpr int headerHeight = 30;
    // Between the header and the table.
    static constexpr int headerGap = 5;
    static constexpr int rowHeight = 60;
    // The table's height before the first rows are shown.
    static constexpr int initialTableHeight = 50;
};

} // namespace corvina
