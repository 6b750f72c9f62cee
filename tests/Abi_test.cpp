// The shared library as its callers meet it: layouts and values that C and C++ agree on, and loading and unloading at
// run time.

#if defined(_WIN32)
#include <malloc.h>

#include "tarn/windows.h"
#else
#include <dirent.h>
#include <dlfcn.h>
#include <malloc.h>
#include <pthread.h>
#endif

#include <gtest/gtest.h>

#include <fstream>
#include <future>
#include <string>
#include <thread>

#include "tests/AbiFacts.h"

namespace tarn::test {
namespace {

/// The shared library, loaded for the scope of the object.
class SharedLibrary {
 public:
#if defined(_WIN32)
  static constexpr int kLoads = 100;
  SharedLibrary() {
    std::string path = TARN_LIBRARY_PATH;
    if (path[0] == '/') path = "Z:" + path;  // cross built: Wine's name for the build machine's root
    for (char& c : path)
      if (c == '/') c = '\\';
    handle_ = LoadLibraryA(path.c_str());
  }
  ~SharedLibrary() {
    if (handle_) FreeLibrary(handle_);
  }
  template <class Function>
  Function* Find(const char* name) const {
    return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(handle_, name)));
  }
  static bool Present(const void* address) {
    HMODULE module = nullptr;
    return GetModuleHandleA("TKRN15X.DLL") != nullptr ||
           GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                              static_cast<const char*>(address), &module);
  }

 private:
  HMODULE handle_;
#else
  static constexpr int kLoads = 1000;
  SharedLibrary() : handle_(dlopen(TARN_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL)) {}
  ~SharedLibrary() {
    if (handle_) dlclose(handle_);
  }
  template <class Function>
  Function* Find(const char* name) const {
    return reinterpret_cast<Function*>(dlsym(handle_, name));
  }
  static bool Present(const void* address) {
    Dl_info info;
    if (dladdr(address, &info) != 0) return true;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
      if (line.find("libtarn.so") != std::string::npos) return true;
    return false;
  }

 private:
  void* handle_;
#endif

 public:
  SharedLibrary(const SharedLibrary&) = delete;
  SharedLibrary& operator=(const SharedLibrary&) = delete;
  explicit operator bool() const { return handle_ != nullptr; }
};

#define TARN_FIND(library, name) library.Find<decltype(name)>(#name)

/// What the process holds that a library might leave behind.
struct Holdings {
  int64_t descriptors = 0;  // handles on Windows
  int64_t mappings = 0;
  int64_t threadKey = 0;  // the next free one
  int64_t heapBytes = 0;  // 0 where it cannot be known
};

#if defined(_WIN32)
Holdings Held() {
  Holdings held;
  DWORD handles = 0;
  GetProcessHandleCount(GetCurrentProcess(), &handles);
  held.descriptors = handles;
  MEMORY_BASIC_INFORMATION region;
  for (char* at = nullptr; VirtualQuery(at, &region, sizeof region) != 0;
       at = static_cast<char*>(region.BaseAddress) + region.RegionSize)
    held.mappings += region.State != MEM_FREE;
  const DWORD key = TlsAlloc();
  held.threadKey = key;
  TlsFree(key);
  _HEAPINFO block{};
  while (_heapwalk(&block) == _HEAPOK)
    if (block._useflag == _USEDENTRY) held.heapBytes += static_cast<int64_t>(block._size);
  return held;
}
#else
Holdings Held() {
  Holdings held;
  DIR* directory = opendir("/proc/self/fd");
  while (readdir(directory)) ++held.descriptors;
  closedir(directory);
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) ++held.mappings;
  pthread_key_t key;
  pthread_key_create(&key, nullptr);
  held.threadKey = key;
  pthread_key_delete(key);
  held.heapBytes = static_cast<int64_t>(mallinfo2().uordblks);
  return held;
}
#endif

TEST(Abi, CAndCppSeeTheSame) {
  static const AbiFact facts[] = {TARN_ABI_FACTS(TARN_ABI_FACT)};
  size_t count = 0;
  const AbiFact* inC = FactsInC(&count);
  ASSERT_EQ(count, std::size(facts));
  for (size_t i = 0; i < count; ++i) {
    EXPECT_EQ(facts[i].value, facts[i].expected) << facts[i].text;
    EXPECT_EQ(inC[i].value, facts[i].expected) << facts[i].text << " in C";
  }
}

TEST(Abi, CProgramUsesLoadedLibrary) {
  const SharedLibrary library;
  ASSERT_TRUE(library);
#define TARN_C_CALL(name) TARN_FIND(library, name),
  const CCalls calls{TARN_C_CALLS(TARN_C_CALL)};
#undef TARN_C_CALL
#define TARN_C_CALL(name) ASSERT_NE(calls.name##_, nullptr) << #name;
  TARN_C_CALLS(TARN_C_CALL)
#undef TARN_C_CALL
  const char* failed = UseBitmapInC(&calls);
  EXPECT_EQ(failed, nullptr) << failed;
}

TEST(Abi, LoadedLibraryKeepsToItself) {  // this program holds a second copy of the same code
  const SharedLibrary library;
  ASSERT_TRUE(library);
  const int32_t before = T_GetDefaultXResolution();
  TARN_FIND(library, T_SetDefaultXResolution)(before + 1);
  EXPECT_EQ(TARN_FIND(library, T_GetDefaultXResolution)(), before + 1);
  EXPECT_EQ(T_GetDefaultXResolution(), before);
}

TEST(Abi, UnloadsWithoutTrace) {
  Holdings first;
  constexpr int kWarmUp = 5;
  for (int load = 0; load < SharedLibrary::kLoads + kWarmUp; ++load) {
    if (load == kWarmUp) first = Held();
    const void* code = nullptr;
    {
      const SharedLibrary library;
      ASSERT_TRUE(library) << "load " << load;
      BitmapHandle bitmap;
      ASSERT_EQ(TARN_FIND(library, T_InitBitmap)(&bitmap, sizeof bitmap, 70, 40, 8), SUCCESS);
      ASSERT_EQ(TARN_FIND(library, T_AllocateBitmap)(&bitmap, TYPE_CONV), SUCCESS);
      bitmap.Data[0] = 1;
      TARN_FIND(library, T_FreeBitmap)(&bitmap);
      // A file; and the codec, which goes with the library.
      for (const uint32_t type : {TYPE_DISK, TYPE_SUPERCOMPRESSED}) {
        ASSERT_EQ(TARN_FIND(library, T_AllocateBitmap)(&bitmap, type), SUCCESS) << type;
        TARN_FIND(library, T_FreeBitmap)(&bitmap);
      }
      // Left for the unload to clear away: this thread's settings and slots.
      ASSERT_EQ(TARN_FIND(library, T_TlsSetValue)(TARN_FIND(library, T_TlsAlloc)(), 1), 1);
      code = reinterpret_cast<const void*>(TARN_FIND(library, T_InitBitmap));
    }
    ASSERT_FALSE(SharedLibrary::Present(code)) << "load " << load;
  }
  const Holdings last = Held();
  EXPECT_EQ(last.descriptors, first.descriptors);
  EXPECT_EQ(last.threadKey, first.threadKey);
  // A few of the allocator's own; a leak at every load would be a hundred times that or more. The address sanitizer
  // keeps what was freed for a while, large blocks in mappings of their own; the thread sanitizer maps beside each
  // load.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  EXPECT_LE(last.mappings, first.mappings + SharedLibrary::kLoads / 10);
#endif
  EXPECT_LE(last.heapBytes, first.heapBytes + SharedLibrary::kLoads * 100);
}

TEST(Abi, UnloadsUnderLivingThreads) {  // their ends must not call into code that is gone
  for (int round = 0; round < 20; ++round) {
    std::promise<void> used, unloaded;
    std::thread user;
    const void* code = nullptr;
    {
      const SharedLibrary library;
      ASSERT_TRUE(library);
      auto* set = TARN_FIND(library, T_SetDefaultXResolution);
      code = reinterpret_cast<const void*>(set);
      user = std::thread([&, set] {
        set(300);
        used.set_value();
        unloaded.get_future().wait();
      });
      used.get_future().wait();
    }
    EXPECT_FALSE(SharedLibrary::Present(code));
    unloaded.set_value();
    user.join();
  }
}

}  // namespace
}  // namespace tarn::test
