// The heap the catalogue holds once loaded, against the UTF-16 bytes of the
// strings it stores (the sum of (length + 1) * 2 over every non-empty
// string). The global operator new and delete are replaced to count live
// bytes: what the catalogue holds is what deleting it gives back.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <new>

#include "catalogue_data.h"
#include "replaced_new_delete.h"

namespace {

struct HeapCount {
  long long bytes = 0;  // as asked for
  long long blocks = 0;
  long long chunks = 0;  // as glibc's malloc lays the blocks out on x86-64 (header, 16-byte steps, 32 at least)
  long long made = 0;    // blocks allocated so far, freed or not
};
HeapCount g_live;

long long Chunk(std::size_t n) {
  const std::size_t size = (n + 8 + 15) & ~static_cast<std::size_t>(15);
  return static_cast<long long>(size < 32 ? 32 : size);
}

// Each block carries its size in front of it, in a header as large as the
// alignment asked for.
void* Allocate(std::size_t n, std::size_t alignment) noexcept {
  if (alignment < 16) alignment = 16;
  void* base = alignment == 16 ? std::malloc(n + alignment)
                               : std::aligned_alloc(alignment, (n + alignment + alignment - 1) / alignment * alignment);
  if (base == nullptr) return nullptr;
  char* block = static_cast<char*>(base) + alignment;
  reinterpret_cast<std::size_t*>(block)[-1] = n;
  reinterpret_cast<std::size_t*>(block)[-2] = alignment;
  g_live.bytes += static_cast<long long>(n);
  g_live.chunks += Chunk(n);
  ++g_live.blocks;
  ++g_live.made;
  return block;
}

void Release(void* p) noexcept {
  if (p == nullptr) return;
  char* block = static_cast<char*>(p);
  const std::size_t n = reinterpret_cast<std::size_t*>(block)[-1];
  const std::size_t alignment = reinterpret_cast<std::size_t*>(block)[-2];
  g_live.bytes -= static_cast<long long>(n);
  g_live.chunks -= Chunk(n);
  --g_live.blocks;
  std::free(block - alignment);
}

}  // namespace

void* kel::testing::ReplacedAllocate(std::size_t size, std::size_t alignment) noexcept {
  return Allocate(size, alignment);
}
void kel::testing::ReplacedRelease(void* block) noexcept { Release(block); }

namespace kel::bench {
namespace {

void BM_Memory_CatalogueHeap(benchmark::State& state) {
  const std::string& bytes = CatalogueFileBytes();
  fakes::ScopedFakePlatform fake;
  fake->AddFile(kFile, bytes);
  HeapCount held;
  std::size_t strings = 0;
  std::size_t records = 0;
  std::size_t appRecords = 0;  // desktop apps and the packages' apps
  long long allocations = 0;
  for (auto _ : state) {
    const long long madeBefore = g_live.made;
    auto* list = new CKELAppNameList;
    (void)list->Load(kFile.c_str());  // ends at the open root
    const HeapCount loaded = g_live;
    allocations = loaded.made - madeBefore;
    strings = StoredStringBytes(*list);
    records = list->Packages().size() + list->DesktopApps().size();
    appRecords = list->DesktopApps().size();
    for (const auto& package : list->Packages()) appRecords += package->Applications().size();
    delete list;
    held.bytes = loaded.bytes - g_live.bytes;
    held.blocks = loaded.blocks - g_live.blocks;
    held.chunks = loaded.chunks - g_live.chunks;
    fake->ClearCalls();
  }
  state.counters["records"] = static_cast<double>(records);
  state.counters["app_records"] = static_cast<double>(appRecords);
  state.counters["heap_bytes"] = static_cast<double>(held.bytes);
  state.counters["heap_blocks"] = static_cast<double>(held.blocks);
  state.counters["malloc_chunk_bytes"] = static_cast<double>(held.chunks);
  state.counters["load_allocations"] = static_cast<double>(allocations);
  state.counters["string_bytes"] = static_cast<double>(strings);
  state.counters["ratio"] = static_cast<double>(held.bytes) / static_cast<double>(strings);
}
BENCHMARK(BM_Memory_CatalogueHeap)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kel::bench
