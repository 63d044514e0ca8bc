#include "offline/name_pool.h"

#include <functional>
#include <new>
#include <utility>

#include "offline/offline_errors.h"

namespace quorbex::internal {

namespace {

constexpr size_t kCacheSlots = 64;  // a power of two

// The cache is plain data, so it stays readable even after the thread's destructors have run; the
// separate guard object hands the cached references back when the thread ends and closes the cache.
struct ThreadCache {
  uint32_t ids[kCacheSlots];
  bool armed;
  bool closed;
};
thread_local ThreadCache tl_cache{};

struct ThreadCacheGuard {
  bool active = false;
  ~ThreadCacheGuard() {
    tl_cache.closed = true;
    NamePool::Instance().FlushThreadCache();
  }
};
thread_local ThreadCacheGuard tl_cache_guard;

}  // namespace

NamePool& NamePool::Instance() {
  static NamePool* pool = new NamePool();  // intentionally never destroyed
  return *pool;
}

NamePool::Entry& NamePool::At(uint32_t id) const noexcept {
  Entry* chunk = chunks_[id >> kChunkBits].load(std::memory_order_acquire);
  return chunk[id & (kChunkSize - 1)];
}

const std::string& NamePool::Text(uint32_t id) const noexcept {
  static const std::string empty;
  return id == 0 ? empty : At(id).text;
}

uint32_t NamePool::NewEntryLocked(std::string_view text) {
  uint32_t id;
  if (!free_ids_.empty()) {
    id = free_ids_.back();
    free_ids_.pop_back();
  } else {
    if (next_id_ > kMaxId) RaiseOutOfMemory("InternedName");
    id = next_id_;
    auto& slot = chunks_[id >> kChunkBits];
    if (slot.load(std::memory_order_relaxed) == nullptr) {
      Entry* chunk = new (std::nothrow) Entry[kChunkSize];
      if (chunk == nullptr) RaiseOutOfMemory("InternedName");
      slot.store(chunk, std::memory_order_release);
    }
    ++next_id_;
  }
  Entry& entry = At(id);
  try {
    entry.text.assign(text);
    index_.emplace(std::string_view(entry.text), id);
  } catch (...) {
    entry.text.clear();
    free_ids_.push_back(id);
    RaiseOutOfMemory("InternedName");
  }
  entry.live = true;
  ++live_;
  return id;
}

uint32_t NamePool::Intern(std::string_view text) {
  if (text.empty()) return 0;
  std::lock_guard lock(mutex_);
  uint32_t id;
  if (auto it = index_.find(text); it != index_.end()) {
    id = it->second;
  } else {
    id = NewEntryLocked(text);
  }
  At(id).refs.fetch_add(1, std::memory_order_relaxed);
  return id;
}

uint32_t NamePool::InternCached(std::string_view text) {
  if (text.empty()) return 0;
  if (tl_cache.closed) return Intern(text);
  uint32_t& slot = tl_cache.ids[std::hash<std::string_view>{}(text) & (kCacheSlots - 1)];
  // The cache holds a reference to each id it keeps, so a cached id is always live.
  if (slot != 0 && At(slot).text == text) {
    AddRef(slot);
    return slot;
  }
  const uint32_t id = Intern(text);
  if (!tl_cache.armed) {
    tl_cache.armed = true;
    tl_cache_guard.active = true;  // constructs the guard, so the thread's end flushes the cache
  }
  AddRef(id);
  Release(std::exchange(slot, id));
  return id;
}

void NamePool::AddRef(uint32_t id) noexcept {
  if (id != 0) At(id).refs.fetch_add(1, std::memory_order_relaxed);
}

void NamePool::Release(uint32_t id) noexcept {
  if (id == 0) return;
  Entry& entry = At(id);
  if (entry.refs.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  // The count reached zero without the lock: another thread may have found the text in the index and
  // revived it, or freed it (and even reused the id) meanwhile. Only a live entry that is still
  // unreferenced under the lock is freed, so it is freed exactly once.
  std::lock_guard lock(mutex_);
  if (!entry.live || entry.refs.load(std::memory_order_acquire) != 0) return;
  index_.erase(std::string_view(entry.text));
  entry.live = false;
  std::string().swap(entry.text);
  --live_;
  try {
    free_ids_.push_back(id);
  } catch (...) {
    // Without room to remember it the id is simply not reused.
  }
}

size_t NamePool::LiveCount() const {
  std::lock_guard lock(mutex_);
  return live_;
}

void NamePool::FlushThreadCache() noexcept {
  for (uint32_t& id : tl_cache.ids) Release(std::exchange(id, 0));
}

}  // namespace quorbex::internal
