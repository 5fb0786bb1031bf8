// Tells the class of an object without run-time type information.
//
// An object with virtual functions begins with the address of its class's table
// of them: so the C++ ABI of GCC and Clang has it. Objects of one class have
// the same table, objects of another class have another one.

#ifndef CORE_COMMON_RPC_TRANSPORT_CLIENT_VIRTUAL_TABLE_H_
#define CORE_COMMON_RPC_TRANSPORT_CLIENT_VIRTUAL_TABLE_H_

#include <cstring>
#include <type_traits>

namespace rpc::transport {

template <typename T>
const void* VirtualTableOf(const T& object) {
  static_assert(std::is_polymorphic_v<T>);
  const void* table = nullptr;
  std::memcpy(&table, static_cast<const void*>(&object), sizeof(table));
  return table;
}

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_CLIENT_VIRTUAL_TABLE_H_
