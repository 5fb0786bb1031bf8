// Nothing, in place of the shim's own operators new and delete.
//
// Those of the C++ library call malloc and free, which the shim does replace,
// and leave a program free to replace them in turn; two definitions in one
// program would not link.
