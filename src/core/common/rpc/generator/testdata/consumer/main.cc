#include <cstdio>

#include "shop/shop.rpc.h"

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
  // With an argument: ends in a fatal record, which names this file's source.
  if (argc > 1)
    service.CallMethod(service.GetDescriptor()->method(1), nullptr, nullptr,
                       nullptr, nullptr);
}
