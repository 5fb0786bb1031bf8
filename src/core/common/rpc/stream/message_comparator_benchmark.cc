// Look-ups among BrowserId keys, compared with a map of plain integers and with
// the comparison that is easiest to write.
//
// Each benchmark looks its keys up in two orders, one that repeats and one that
// does not. When the order repeats, the processor's branch prediction learns
// it, and look-ups take far less time than they would in a real program.

#include <benchmark/benchmark.h>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/message.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "browser_id.pb.h"
#include "core/common/rpc/stream/message_comparator.h"

namespace torvane {
namespace {

using google::protobuf::Message;

std::string DeterministicBytes(const Message& message) {
  std::string bytes;
  {
    google::protobuf::io::StringOutputStream stream(&bytes);
    google::protobuf::io::CodedOutputStream out(&stream);
    out.SetSerializationDeterministic(true);
    message.SerializePartialToCodedStream(&out);
  }
  return bytes;
}

struct NaiveComparator {
  bool operator()(const Message* a, const Message* b) const {
    const std::string type_a = a->GetTypeName(), type_b = b->GetTypeName();
    if (type_a != type_b)
      return type_a < type_b;
    return DeterministicBytes(*a) < DeterministicBytes(*b);
  }
};

// Windows count up from here: a browser that has run for a while.
constexpr int64_t kFirstId = 1000;

// Indexes below `count` in the order of the look-ups.
std::vector<size_t> LookUps(size_t count, bool learnable) {
  std::mt19937 random(1);
  if (learnable) {
    std::vector<size_t> order(count);
    std::iota(order.begin(), order.end(), 0);
    std::shuffle(order.begin(), order.end(), random);
    return order;
  }
  std::vector<size_t> order(1 << 20);
  for (size_t& index : order)
    index = random() % count;
  return order;
}

template <typename Map, typename Key>
void LookUpAll(benchmark::State& state,
               const Map& map,
               const std::vector<Key>& keys) {
  const std::vector<size_t> order = LookUps(keys.size(), state.range(1) != 0);
  size_t next = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(map.find(keys[order[next]]));
    if (++next == order.size())
      next = 0;
  }
}

void Integers(benchmark::State& state) {
  std::map<int64_t, int> map;
  std::vector<int64_t> keys;
  for (int i = 0; i < state.range(0); ++i) {
    keys.push_back(kFirstId + i);
    map[keys.back()] = i;
  }
  LookUpAll(state, map, keys);
}

std::unique_ptr<BrowserId> Window(int64_t id) {
  auto window = std::make_unique<BrowserId>();
  window->set_value(id);
  return window;
}

// The keys stored lie beside the entries, as in a registry, which copies a key
// when it adds the entry. Those sought have come in later.
template <typename Comparator>
void Windows(benchmark::State& state) {
  std::vector<std::unique_ptr<BrowserId>> stored(state.range(0));
  std::vector<std::unique_ptr<BrowserId>> sought(state.range(0));
  std::map<const Message*, int, Comparator> map;
  for (int i = 0; i < state.range(0); ++i) {
    stored[i] = Window(kFirstId + i);
    map[stored[i].get()] = i;
  }
  std::vector<const Message*> keys;
  for (int i = 0; i < state.range(0); ++i) {
    sought[i] = Window(kFirstId + i);
    keys.push_back(sought[i].get());
  }
  LookUpAll(state, map, keys);
}

void Sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"keys", "learnable"})
      ->ArgsProduct({{10, 1'000, 100'000}, {0, 1}});
}

BENCHMARK(Integers)->Apply(Sizes);
BENCHMARK(Windows<MessageComparator>)->Apply(Sizes);
BENCHMARK(Windows<NaiveComparator>)->Apply(Sizes);

}  // namespace
}  // namespace torvane
