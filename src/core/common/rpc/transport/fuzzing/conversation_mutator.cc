// Changes conversations as libFuzzer's own mutator changes bytes: some messages
// become others, are said twice, left out or said at another time. All others
// stay valid, so that a session gets as far as the changed message, and mostly
// beyond it.

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "core/common/rpc/transport/fuzzing/conversation.h"

// libFuzzer's: changes `data` in place and returns its new size.
extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t max_size);

namespace rpc::transport {
namespace {

constexpr size_t kGrowth = 64;

class Mutator {
 public:
  Mutator(std::vector<Utterance> utterances, unsigned seed)
      : utterances_(std::move(utterances)), random_(seed) {}

  std::string Run() {
    const size_t at = Pick(utterances_.size());
    switch (Pick(10)) {
      case 0:
        utterances_.erase(Place(at));
        break;
      case 1:
        utterances_.insert(Place(Pick(utterances_.size() + 1)),
                           Utterance(utterances_[at]));
        break;
      case 2:
        std::swap(utterances_[at], utterances_[Pick(utterances_.size())]);
        break;
      case 3:
        utterances_[at].bytes = Mutate(utterances_[at].bytes);
        break;
      case 4:
        ChangeKind(utterances_[at]);
        break;
      default:
        ChangeBody(utterances_[at]);
    }
    std::string bytes;
    for (const Utterance& utterance : utterances_) {
      bytes += utterance.bytes;
    }
    return bytes;
  }

 private:
  size_t Pick(size_t n) {
    return std::uniform_int_distribution<size_t>(0, n - 1)(random_);
  }

  std::vector<Utterance>::iterator Place(size_t index) {
    return utterances_.begin() + static_cast<ptrdiff_t>(index);
  }

  static std::string Mutate(std::string bytes) {
    const size_t size = bytes.size();
    bytes.resize(size + kGrowth);
    bytes.resize(LLVMFuzzerMutate(reinterpret_cast<uint8_t*>(bytes.data()),
                                  size, bytes.size()));
    return bytes;
  }

  static void ChangeBody(Utterance& utterance) {
    if (utterance.kind == Frame::BODY_NOT_SET) {
      utterance.bytes = Mutate(utterance.bytes);
    } else {
      utterance.bytes = WireFrame(utterance.kind, Mutate(utterance.body));
    }
  }

  void ChangeKind(Utterance& utterance) {
    const auto kind = static_cast<FrameKind>(1 + Pick(Frame::kGoodbye));
    utterance.bytes = WireFrame(kind, utterance.body);
  }

  std::vector<Utterance> utterances_;
  std::minstd_rand random_;
};

}  // namespace
}  // namespace rpc::transport

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data,
                                          size_t size,
                                          size_t max_size,
                                          unsigned int seed) {
  auto utterances =
      rpc::transport::Cut({reinterpret_cast<const char*>(data), size});
  if (utterances.empty()) {
    return LLVMFuzzerMutate(data, size, max_size);
  }
  const std::string bytes =
      rpc::transport::Mutator(std::move(utterances), seed).Run();
  if (bytes.empty() || bytes.size() > max_size) {
    return LLVMFuzzerMutate(data, size, max_size);
  }
  return bytes.copy(reinterpret_cast<char*>(data), bytes.size());
}
