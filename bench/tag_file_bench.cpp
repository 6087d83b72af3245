// Tag file throughput next to a plain write()/read() of the same number of
// bytes on the same file system.
//
//   ZOLT_BENCH_TAGS  tags per file (default 10,000,000; 100000000 for the
//                    full-size figure: an 800 MB file)
//   ZOLT_BENCH_DIR   directory for the files (default $TMPDIR or /tmp)
//
// Tags are streamed in chunks of 2^20 (16 MiB of tt_tag), never held whole.
// Writes never call fsync: both sides measure the path into the page cache,
// where the library's own cost shows. Reads run twice: from the page cache
// (cold:0) and with the file's pages dropped before each pass (cold:1), as
// when a long recording is analysed later. The files are removed at exit.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "zolt_timing.h"

namespace {

constexpr std::size_t kChunkTags = std::size_t{1} << 20;
constexpr std::size_t kPlainBlockBytes = kChunkTags * 8;

std::uint64_t tag_count() {
  const char* text = std::getenv("ZOLT_BENCH_TAGS");
  const unsigned long long value = text ? std::strtoull(text, nullptr, 10) : 0;
  return value ? value : 10'000'000;
}

std::string bench_dir() {
  if (const char* dir = std::getenv("ZOLT_BENCH_DIR"); dir && *dir) return dir;
  if (const char* dir = std::getenv("TMPDIR"); dir && *dir) return dir;
  return "/tmp";
}

// The two files of the run, named after the process so that parallel runs do
// not collide; removed when the program ends.
struct BenchFiles {
  std::string tags = bench_dir() + "/zolt_tag_file_bench_" + std::to_string(::getpid()) + ".tags";
  std::string plain = bench_dir() + "/zolt_tag_file_bench_" + std::to_string(::getpid()) + ".plain";
  ~BenchFiles() {
    std::remove(tags.c_str());
    std::remove(plain.c_str());
  }
};

BenchFiles& files() {
  static BenchFiles instance;
  return instance;
}

// One chunk of realistic tags: four inputs, increasing times.
const std::vector<tt_tag>& sample_chunk() {
  static const std::vector<tt_tag> chunk = [] {
    std::vector<tt_tag> tags(kChunkTags);
    std::uint64_t state = 88172645463325252ull;
    std::int64_t time = 0;
    for (auto& tag : tags) {
      state ^= state << 13, state ^= state >> 7, state ^= state << 17;
      time += static_cast<std::int64_t>(state % 20'000);
      tag = {static_cast<std::uint32_t>(state >> 62), time};
    }
    return tags;
  }();
  return chunk;
}

bool write_tag_file(const std::string& path, std::uint64_t count) {
  tt_tag_file_writer* writer = nullptr;
  if (tt_tag_file_writer_open(&writer, path.c_str()) != TT_OK) return false;
  tt_tag_file_writer_set_max_file_size(writer, 0);  // one file, however large
  const std::vector<tt_tag>& chunk = sample_chunk();
  bool ok = true;
  for (std::uint64_t done = 0; ok && done < count;) {
    const std::size_t now = static_cast<std::size_t>(std::min<std::uint64_t>(count - done, kChunkTags));
    ok = tt_tag_file_writer_write(writer, chunk.data(), now, nullptr) == TT_OK;
    done += now;
  }
  ok = tt_tag_file_writer_close(writer) == TT_OK && ok;
  tt_tag_file_writer_free(writer);
  return ok;
}

std::uint64_t file_bytes(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY);
  if (fd < 0) return 0;
  const off_t size = ::lseek(fd, 0, SEEK_END);
  ::close(fd);
  return size < 0 ? 0 : static_cast<std::uint64_t>(size);
}

bool write_plain(const std::string& path, std::uint64_t bytes, const std::vector<char>& block) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (fd < 0) return false;
  bool ok = true;
  for (std::uint64_t done = 0; ok && done < bytes;) {
    const std::size_t now = static_cast<std::size_t>(std::min<std::uint64_t>(bytes - done, block.size()));
    const ssize_t wrote = ::write(fd, block.data(), now);
    ok = wrote > 0;
    done += ok ? static_cast<std::uint64_t>(wrote) : 0;
  }
  return ::close(fd) == 0 && ok;
}

// Evicts the file's pages from the page cache so that the next read comes
// from the storage device.
void drop_from_page_cache(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY);
  if (fd < 0) return;
  ::fdatasync(fd);
  ::posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
  ::close(fd);
}

// Called at the top of each timed pass of a read benchmark.
void prepare_read(benchmark::State& state, const std::string& path) {
  if (state.range(0) == 0) return;
  state.PauseTiming();
  drop_from_page_cache(path);
  state.ResumeTiming();
}

void report(benchmark::State& state, std::uint64_t tags, std::uint64_t bytes) {
  state.counters["tags_per_s"] = benchmark::Counter(static_cast<double>(tags * state.iterations()),
                                                    benchmark::Counter::kIsRate);
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes * state.iterations()));
}

void BM_TagFileWrite(benchmark::State& state) {
  const std::uint64_t count = tag_count();
  sample_chunk();
  for (auto _ : state) {
    if (!write_tag_file(files().tags, count)) state.SkipWithError("tag file write failed");
  }
  report(state, count, file_bytes(files().tags));
}

void BM_PlainWrite(benchmark::State& state) {
  const std::uint64_t count = tag_count();
  if (file_bytes(files().tags) == 0 && !write_tag_file(files().tags, count)) state.SkipWithError("setup failed");
  const std::uint64_t bytes = file_bytes(files().tags);
  const std::vector<char> block(kPlainBlockBytes, '\x5a');
  for (auto _ : state) {
    if (!write_plain(files().plain, bytes, block)) state.SkipWithError("plain write failed");
  }
  report(state, count, bytes);
}

void BM_TagFileRead(benchmark::State& state) {
  const std::uint64_t count = tag_count();
  if (file_bytes(files().tags) == 0 && !write_tag_file(files().tags, count)) state.SkipWithError("setup failed");
  std::vector<tt_tag> out(kChunkTags);
  std::uint64_t read_total = 0;
  for (auto _ : state) {
    prepare_read(state, files().tags);
    tt_tag_file_reader* reader = nullptr;
    if (tt_tag_file_reader_open(&reader, files().tags.c_str()) != TT_OK) {
      state.SkipWithError("tag file open failed");
      break;
    }
    read_total = 0;
    size_t got = 0;
    while (tt_tag_file_reader_read(reader, out.data(), out.size(), &got) == TT_OK && got > 0) read_total += got;
    tt_tag_file_reader_free(reader);
    benchmark::DoNotOptimize(out.data());
  }
  if (read_total != count) state.SkipWithError("tag count read back differs");
  report(state, count, file_bytes(files().tags));
}

void BM_PlainRead(benchmark::State& state) {
  const std::uint64_t count = tag_count();
  if (file_bytes(files().plain) == 0) {
    const std::uint64_t bytes = file_bytes(files().tags) ? file_bytes(files().tags) : count * 8;
    if (!write_plain(files().plain, bytes, std::vector<char>(kPlainBlockBytes, '\x5a'))) state.SkipWithError("setup failed");
  }
  std::vector<char> block(kPlainBlockBytes);
  for (auto _ : state) {
    prepare_read(state, files().plain);
    const int fd = ::open(files().plain.c_str(), O_RDONLY);
    if (fd < 0) {
      state.SkipWithError("plain open failed");
      break;
    }
    while (::read(fd, block.data(), block.size()) > 0) {
    }
    ::close(fd);
    benchmark::DoNotOptimize(block.data());
  }
  report(state, count, file_bytes(files().plain));
}

BENCHMARK(BM_TagFileWrite)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_PlainWrite)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_TagFileRead)->ArgName("cold")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_PlainRead)->ArgName("cold")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
