// Empty on purpose: replaces the header with the shim's operators new and
// delete.
//
// The C++ library's operators call malloc and free, which the shim replaces, so
// they are protected too. A program may then define operators of its own; next
// to the shim's that would not link.
