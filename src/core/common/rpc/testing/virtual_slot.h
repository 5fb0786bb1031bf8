// The position of a virtual function in its class's virtual table.

#ifndef CORE_COMMON_RPC_TESTING_VIRTUAL_SLOT_H_
#define CORE_COMMON_RPC_TESTING_VIRTUAL_SLOT_H_

#include <cstddef>
#include <cstring>

namespace torvane {

// The two slots of a virtual destructor come before all others of a class that
// declares it first.
inline constexpr ptrdiff_t kDestructorSlots = 2;

// Under the Itanium C++ ABI a pointer to a virtual member function holds one
// plus the offset of its slot in the table (section 2.3, Member Function
// Pointers).
template <typename Operation>
ptrdiff_t SlotOf(Operation operation) {
  static_assert(sizeof(operation) == 2 * sizeof(ptrdiff_t));
  ptrdiff_t offset_plus_one = 0;
  std::memcpy(&offset_plus_one, &operation, sizeof(offset_plus_one));
  return (offset_plus_one - 1) / static_cast<ptrdiff_t>(sizeof(void*));
}

}  // namespace torvane

#endif  // CORE_COMMON_RPC_TESTING_VIRTUAL_SLOT_H_
