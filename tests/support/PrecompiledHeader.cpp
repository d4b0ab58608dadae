// Deliberately empty: the target that owns the tests' precompiled header needs one source to
// compile it with (see tests/CMakeLists.txt).
