#include "platform/guid.h"

#include <sys/random.h>

#include <cerrno>
#include <utility>

namespace quorbex::platform {

namespace {

class RandomGuidSource final : public GuidSource {
 public:
  std::optional<Guid> Create() override {
    Guid guid{};
    size_t filled = 0;
    while (filled < guid.size()) {
      ssize_t got = getrandom(guid.data() + filled, guid.size() - filled, 0);
      if (got < 0) {
        if (errno == EINTR) continue;
        return std::nullopt;
      }
      filled += static_cast<size_t>(got);
    }
    guid[6] = static_cast<uint8_t>((guid[6] & 0x0F) | 0x40);
    guid[8] = static_cast<uint8_t>((guid[8] & 0x3F) | 0x80);
    return guid;
  }
};

Installed<GuidSource>& Slot() {
  static Installed<GuidSource> slot(SystemGuidSource());
  return slot;
}

}  // namespace

std::shared_ptr<GuidSource> SystemGuidSource() {
  static const auto source = std::make_shared<RandomGuidSource>();
  return source;
}

std::shared_ptr<GuidSource> Install(std::shared_ptr<GuidSource> source) { return Slot().Set(std::move(source)); }

std::optional<std::array<uint8_t, 16>> CreateGuid() {
  try {
    return Slot().Get()->Create();
  } catch (...) {
    return std::nullopt;
  }
}

}  // namespace quorbex::platform
