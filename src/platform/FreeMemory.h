#pragma once

namespace corvina {

// Memory the program freed, handed back to the system.
class FreeMemory {
public:
    // Gives back the pages of the heap that hold nothing any more, wherever they lie. The C library
    // gives back on its own only what is free at the heap's end; a list of a hundred thousand
    // records replaced or dropped leaves its pages free in the middle, where they would stay the
    // program's for good. Does nothing where the C library offers no such call.
    static void giveBackFreePages();
};

} // namespace corvina
