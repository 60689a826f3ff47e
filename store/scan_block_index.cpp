#include "store/scan_block_index.h"

#include <algorithm>
#include <cstring>
#include <queue>

#include "store/temp_file.h"

namespace marrow {
namespace {

using Entry = ScanBlockIndex::Entry;
static_assert(sizeof(Entry) == 24, "entries are stored as they lie in memory");

bool Before(const Entry& a, const Entry& b) {
  return a.id != b.id ? a.id < b.id : a.seq < b.seq;
}

// Collects entries and appends them to a file in large writes.
class EntryWriter {
 public:
  explicit EntryWriter(TempFile& file) : file_(file) { buffer_.reserve(kBatch); }
  bool Put(const Entry& e) {
    buffer_.push_back(e);
    return buffer_.size() < kBatch || Flush();
  }
  bool Flush() {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(buffer_.data());
    const bool ok = file_.Append(Bytes(bytes, buffer_.size() * sizeof(Entry)));
    buffer_.clear();
    return ok;
  }

 private:
  static constexpr std::size_t kBatch = 0x10000 / sizeof(Entry);
  TempFile& file_;
  std::vector<Entry> buffer_;
};

// Reads one sorted run back in order, a buffer at a time.
class RunReader {
 public:
  RunReader(const TempFile& file, std::uint64_t count) : file_(file), count_(count) {}
  bool Next(Entry& e) {
    if (at_ == buffer_.size()) {
      if (done_ >= count_) return false;
      const std::uint64_t n = std::min<std::uint64_t>(kBatch, count_ - done_);
      buffer_.resize(n);
      const std::size_t bytes = n * sizeof(Entry);
      if (file_.ReadAt(done_ * sizeof(Entry), reinterpret_cast<std::uint8_t*>(buffer_.data()), bytes) != bytes) {
        return false;
      }
      done_ += n;
      at_ = 0;
    }
    e = buffer_[at_++];
    return true;
  }

 private:
  static constexpr std::size_t kBatch = 4096;
  const TempFile& file_;
  std::uint64_t count_;
  std::uint64_t done_ = 0;
  std::vector<Entry> buffer_;
  std::size_t at_ = 0;
};

}  // namespace

ScanBlockIndex::ScanBlockIndex(std::size_t runRows, std::size_t fenceStride)
    : runRows_(std::max<std::size_t>(runRows, 1)), fenceStride_(std::max<std::size_t>(fenceStride, 1)) {}

ScanBlockIndex::~ScanBlockIndex() = default;

bool ScanBlockIndex::Update(ScannedBlockList& blocks) {
  // The list only ever grows, so an unchanged count means unchanged rows.
  if (built_ && builtFor_ == blocks.RecordCount()) return true;
  built_ = Build(blocks);
  builtFor_ = blocks.RecordCount();
  return built_;
}

bool ScanBlockIndex::Build(ScannedBlockList& blocks) {
  sorted_.reset();
  fences_.clear();
  entries_ = 0;
  blocks.Rewind();

  std::vector<std::unique_ptr<TempFile>> runs;
  std::vector<std::uint64_t> runCounts;
  std::vector<Entry> batch;
  batch.reserve(runRows_);
  auto spill = [&]() {
    std::sort(batch.begin(), batch.end(), Before);
    std::unique_ptr<TempFile> run = TempFile::Create({}, "");
    if (!run) return false;
    run->Unlink();
    EntryWriter writer(*run);
    for (const Entry& e : batch) {
      if (!writer.Put(e)) return false;
    }
    if (!writer.Flush()) return false;
    runCounts.push_back(batch.size());
    runs.push_back(std::move(run));
    batch.clear();
    return true;
  };
  Entry e{};
  ScannedBlockRow row;
  for (std::uint32_t seq = 0; blocks.Next(row); ++seq) {
    e.id = row.blockId;
    e.offset = row.fileOffset;
    e.seq = seq;
    e.size = row.size;
    batch.push_back(e);
    if (batch.size() == runRows_ && !spill()) return false;
  }

  std::unique_ptr<TempFile> out = TempFile::Create({}, "");
  if (!out) return false;
  out->Unlink();
  EntryWriter writer(*out);
  auto emit = [&](const Entry& x) {
    if (entries_ % fenceStride_ == 0) fences_.push_back(x.id);
    ++entries_;
    return writer.Put(x);
  };
  if (runs.empty()) {
    std::sort(batch.begin(), batch.end(), Before);
    for (const Entry& x : batch) {
      if (!emit(x)) return false;
    }
  } else {
    if (!batch.empty() && !spill()) return false;
    std::vector<RunReader> readers;
    for (std::size_t i = 0; i < runs.size(); ++i) readers.emplace_back(*runs[i], runCounts[i]);
    using Head = std::pair<Entry, std::size_t>;
    auto later = [](const Head& a, const Head& b) { return Before(b.first, a.first); };
    std::priority_queue<Head, std::vector<Head>, decltype(later)> heads(later);
    for (std::size_t i = 0; i < readers.size(); ++i) {
      if (readers[i].Next(e)) heads.emplace(e, i);
    }
    while (!heads.empty()) {
      const auto [x, from] = heads.top();
      heads.pop();
      if (!emit(x)) return false;
      if (readers[from].Next(e)) heads.emplace(e, from);
    }
  }
  if (!writer.Flush()) return false;
  sorted_ = std::move(out);
  return true;
}

template <typename Visit>
void ScanBlockIndex::Scan(std::uint64_t blockId, Visit visit) const {
  if (!sorted_ || fences_.empty()) return;
  // The first stretch that can hold the id: the one before the first fence
  // not below it (its rows run up to that fence).
  std::size_t k = std::lower_bound(fences_.begin(), fences_.end(), blockId) - fences_.begin();
  if (k > 0) --k;
  std::vector<Entry> rows(fenceStride_);
  for (; k < fences_.size(); ++k) {
    const std::uint64_t first = k * fenceStride_;
    const std::uint64_t n = std::min<std::uint64_t>(fenceStride_, entries_ - first);
    const std::size_t bytes = n * sizeof(Entry);
    if (sorted_->ReadAt(first * sizeof(Entry), reinterpret_cast<std::uint8_t*>(rows.data()), bytes) != bytes) return;
    for (std::uint64_t i = 0; i < n; ++i) {
      if (rows[i].id < blockId) continue;
      if (rows[i].id > blockId || !visit(rows[i])) return;
    }
  }
}

bool ScanBlockIndex::Find(std::uint64_t blockId, std::uint64_t& offset, std::uint64_t& size) const {
  bool found = false;
  Scan(blockId, [&](const Entry& e) {
    offset = e.offset;
    size = e.size;
    found = true;
    return false;
  });
  return found;
}

void ScanBlockIndex::FindAll(std::uint64_t blockId, std::vector<std::uint64_t>& offsets,
                             std::vector<std::uint64_t>& sizes) const {
  Scan(blockId, [&](const Entry& e) {
    offsets.push_back(e.offset);
    sizes.push_back(e.size);
    return true;
  });
}

}  // namespace marrow
