// Serves a service of its own, without a transport.
//
//   consumer         calls it, and says what it answers
//   consumer fail    ends in a fatal record of the generated code

#include <cstdio>

#include "shop/shop.rpc.h"

#ifdef WITH_PARTITION_ALLOC
#include <type_traits>

#include "base/memory/raw_ptr.h"
#include "partition_alloc/pointers/raw_ptr_backup_ref_impl.h"

// The same as the libraries that this program links have.
static_assert(std::is_same_v<raw_ptr<torvane::Service>::Impl,
                             base::internal::RawPtrBackupRefImpl<>>);
#endif

class CheapShop : public shop::ShopRpc {
 public:
  void GetPrice(google::protobuf::RpcController*,
                const BrowserId*,
                shop::Price* response,
                google::protobuf::Closure*) override {
    response->set_cents(1);
  }
};

int main(int argc, char**) {
  CheapShop service;
  shop::Price price;
  service.CallMethod(service.GetDescriptor()->method(0), nullptr, nullptr,
                     &price, nullptr);
  std::printf("%d cents\n", static_cast<int>(price.cents()));
#ifdef __GXX_RTTI
  torvane::Service* base = &service;
  std::printf("type information: %s\n",
              dynamic_cast<CheapShop*>(base) == &service ? "right" : "wrong");
#endif
  if (argc > 1)
    service.CallMethod(service.GetDescriptor()->method(1), nullptr, nullptr,
                       nullptr, nullptr);
}
