// The process-wide pool behind InternedName.
//
// Each distinct text is stored once, in an entry addressed by a 24-bit id (0 is the empty text and
// has no entry). Holders count references; the last one to go frees the entry and its id is reused.
// Entries live in chunks that never move, so reading a text needs no lock; interning a new text and
// freeing an entry take the pool's mutex.
//
// Interning by text goes through a small per-thread cache first: loaders assign the same few column
// names millions of times, and the cache turns those into a hash, a compare and a reference count.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace quorbex::internal {

class NamePool {
 public:
  static constexpr uint32_t kIdBits = 24;
  static constexpr uint32_t kMaxId = (1u << kIdBits) - 1;

  // The pool; created on first use and never destroyed, so holders that outlive static destruction
  // (thread-local state, leaked objects) can still let go of their names.
  static NamePool& Instance();

  // The id of `text` with one reference for the caller; 0 for "". Raises AutomationError 7 when all
  // ids are taken.
  uint32_t Intern(std::string_view text);
  // As Intern, but served from the calling thread's cache when it can.
  uint32_t InternCached(std::string_view text);
  void AddRef(uint32_t id) noexcept;
  void Release(uint32_t id) noexcept;
  // The text of a live id ("" for 0).
  const std::string& Text(uint32_t id) const noexcept;

  // Number of texts currently stored.
  size_t LiveCount() const;
  // Drops the calling thread's cached references (so that LiveCount sees only real holders).
  void FlushThreadCache() noexcept;

 private:
  struct Entry {
    std::string text;
    std::atomic<uint64_t> refs{0};
    bool live = false;  // guarded by mutex_
  };
  static constexpr uint32_t kChunkBits = 12;
  static constexpr uint32_t kChunkSize = 1u << kChunkBits;
  static constexpr uint32_t kChunkCount = 1u << (kIdBits - kChunkBits);

  NamePool() = default;
  Entry& At(uint32_t id) const noexcept;
  uint32_t NewEntryLocked(std::string_view text);

  mutable std::mutex mutex_;
  std::unordered_map<std::string_view, uint32_t> index_;  // keys view the entries' own texts
  std::vector<uint32_t> free_ids_;
  uint32_t next_id_ = 1;
  size_t live_ = 0;
  std::array<std::atomic<Entry*>, kChunkCount> chunks_{};
};

}  // namespace quorbex::internal
