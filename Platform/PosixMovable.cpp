// Movable blocks: each has a node of its own whose address is the handle, so that the data may move. Fixed blocks have
// one too, under the data's address. Every handle and address is looked up among the live ones before it is followed.

#include <malloc.h>

#include <cstdlib>
#include <cstring>

#include "Platform/PosixShared.h"

namespace tarn::platform {

namespace {

constexpr uint64_t kMovable = 2;
constexpr uint64_t kZeroFilled = 64;

struct Node {
  Node* nextHandle;   // chain of its place in byHandle
  Node* nextAddress;  // chain of its place in byAddress; unused while data is null
  uint8_t* data;      // null for a movable block of size 0
  size_t bytes;
  uint32_t locks;
  bool movable;

  uint64_t Handle() const noexcept {
    return reinterpret_cast<uintptr_t>(movable ? static_cast<const void*>(this) : data);
  }
};

constexpr size_t kPlaces = 1024;
constinit CriticalSection section;
Node* byHandle[kPlaces] = {};  // guarded by section
Node* byAddress[kPlaces] = {};

size_t PlaceOf(uint64_t value) noexcept { return static_cast<size_t>(value * 0x9E3779B97F4A7C15u >> 54); }
size_t PlaceOf(const void* address) noexcept { return PlaceOf(reinterpret_cast<uintptr_t>(address)); }

template <Node* Node::*next>
void Unlink(Node** place, const Node* node) noexcept {
  while (*place != node) place = &((*place)->*next);
  *place = node->*next;
}

void Insert(Node* node) noexcept {
  Node** place = &byHandle[PlaceOf(node->Handle())];
  node->nextHandle = *place;
  *place = node;
  if (!node->data) return;
  place = &byAddress[PlaceOf(node->data)];
  node->nextAddress = *place;
  *place = node;
}

void Remove(Node* node) noexcept {
  Unlink<&Node::nextHandle>(&byHandle[PlaceOf(node->Handle())], node);
  if (node->data) Unlink<&Node::nextAddress>(&byAddress[PlaceOf(node->data)], node);
}

Node* Find(uint64_t handle) noexcept {
  for (Node* node = byHandle[PlaceOf(handle)]; node; node = node->nextHandle)
    if (node->Handle() == handle) return node;
  errno = EINVAL;
  return nullptr;
}

/// Resizes the data of a node that is in no list. False: as it was.
bool Resize(Node& node, size_t bytes, uint64_t flags) noexcept {
  const bool mayMove = (flags & kMovable) || (node.movable && node.locks == 0);
  if (bytes == 0 && node.movable) {
    if (node.locks) {
      errno = EINVAL;
      return false;
    }
    std::free(node.data);
    node.data = nullptr;
  } else if (mayMove || !node.data) {
    uint8_t* data = static_cast<uint8_t*>(std::realloc(node.data, bytes ? bytes : 1));
    if (!data) return false;
    node.data = data;
  } else if (bytes > malloc_usable_size(node.data)) {
    errno = ENOMEM;  // somebody holds the address
    return false;
  }
  if ((flags & kZeroFilled) && bytes > node.bytes) std::memset(node.data + node.bytes, 0, bytes - node.bytes);
  node.bytes = bytes;
  return true;
}

}  // namespace

uint64_t MovableAlloc(uint32_t flags, uint64_t bytes, Here here) noexcept {
  if (MemoryRefused(fault::Point::kMemory, here)) return 0;
  Node* node = static_cast<Node*>(std::calloc(1, sizeof(Node)));
  if (!node) return 0;
  node->movable = flags & kMovable;
  node->bytes = bytes;
  if (bytes > 0 || !node->movable) {
    const size_t room = bytes ? bytes : 1;
    node->data = static_cast<uint8_t*>((flags & kZeroFilled) ? std::calloc(1, room) : std::malloc(room));
    if (!node->data) {
      std::free(node);
      errno = ENOMEM;
      return 0;
    }
  }
  const Guard guard(section);
  Insert(node);
  Add(counts.movableBlocks, 1);
  return node->Handle();
}

uint64_t MovableRealloc(uint64_t handle, uint64_t bytes, uint32_t flags, Here here) noexcept {
  if (MemoryRefused(fault::Point::kMemory, here)) return 0;
  const Guard guard(section);
  Node* node = Find(handle);
  if (!node) return 0;
  Remove(node);
  const bool resized = Resize(*node, bytes, flags);
  const int error = errno;
  Insert(node);
  errno = error;
  return resized ? node->Handle() : 0;
}

void MovableFree(uint64_t handle) noexcept {
  Node* node = nullptr;
  {
    const Guard guard(section);
    node = Find(handle);
    if (!node) return;
    Remove(node);
  }
  std::free(node->data);
  std::free(node);
  Add(counts.movableBlocks, -1);
}

void* MovableLock(uint64_t handle) noexcept {
  const Guard guard(section);
  Node* node = Find(handle);
  if (!node || !node->data) return nullptr;
  if (node->movable) ++node->locks;
  return node->data;
}

void MovableUnlock(uint64_t handle) noexcept {
  const Guard guard(section);
  Node* node = Find(handle);
  if (node && node->locks) --node->locks;
}

uint64_t MovableHandle(const void* address) noexcept {
  if (!address) return 0;
  const Guard guard(section);
  for (const Node* node = byAddress[PlaceOf(address)]; node; node = node->nextAddress)
    if (node->data == address) return node->Handle();
  errno = EINVAL;
  return 0;
}

uint64_t MovableSize(uint64_t handle) noexcept {
  const Guard guard(section);
  const Node* node = Find(handle);
  return node ? node->bytes : 0;
}

}  // namespace tarn::platform
