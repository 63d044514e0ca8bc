// GUID creation: 128 random bits with the RFC 4122 version-4 marks.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>

#include "platform/installable.h"

namespace quorbex::platform {

using Guid = std::array<uint8_t, 16>;

class GuidSource {
 public:
  virtual ~GuidSource() = default;
  // A fresh GUID in byte order (the canonical text reads the bytes left to right); nullopt when the
  // system cannot supply one.
  virtual std::optional<Guid> Create() = 0;
};

// The Linux default: 16 bytes from getrandom(), then version 4 (byte 6 high nibble 0100) and the
// RFC 4122 variant (byte 8 high bits 10).
std::shared_ptr<GuidSource> SystemGuidSource();

// Installs `source` process-wide (nullptr: the default) and returns the previous one.
std::shared_ptr<GuidSource> Install(std::shared_ptr<GuidSource> source);
using GuidScope = InstallScope<GuidSource>;

// A new GUID from the installed source; nullopt when it fails.
std::optional<std::array<uint8_t, 16>> CreateGuid();

}  // namespace quorbex::platform
