#include "ovo/detail/Runtime.h"

#include <sys/mman.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <utility>

#include "ovo/detail/LibraryFolder.h"
#include "ovo/detail/OpenUsd.h"
#include "ovo/detail/ReadContext.h"
#include "ovo/detail/TextGuard.h"
#include "ovo/detail/UnfinishedFile.h"

namespace ovo::detail {

void Problems::add(std::string text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
  if (text.empty()) return;
  const std::lock_guard<std::mutex> lock(mutex_);
  if (known_.insert(text).second) order_.push_back(std::move(text));
}

void Problems::addSorted(std::vector<std::string> texts) {
  std::sort(texts.begin(), texts.end());
  for (std::string& text : texts) add(std::move(text));
}

std::vector<std::string> Problems::list() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return order_;
}

namespace {

thread_local Problems* tlsProblems = nullptr;
thread_local bool tlsOpensPlainData = false;

// Collectors that also take messages of OpenUSD's worker threads, in the order of their set-up.
struct SharedCollectors {
  std::mutex mutex;
  std::vector<Problems*> stack;
};
SharedCollectors& sharedCollectors() {
  static auto* const collectors = new SharedCollectors;
  return *collectors;
}

// Hands messages to the stage at work. It stays in place once set: the library prints only while
// there is no delegate.
class Delegate final : public pxr::TfDiagnosticMgr::Delegate {
 public:
  void IssueStatus(const pxr::TfStatus&) override {}
  void IssueWarning(const pxr::TfWarning& warning) override { take(warning.GetCommentary()); }
  void IssueError(const pxr::TfError& error) override { take(error.GetCommentary()); }
  void IssueFatalError(const pxr::TfCallContext&, const std::string& message) override {
    take(message);
  }

 private:
  static void take(const std::string& message) {
    // That a file is old is no reason for anything to be missing.
    if (message.find("PXR_USDC_EMIT_DEPRECATION_WARNINGS") != std::string::npos) return;
    if (tlsProblems) {
      tlsProblems->add(message);
      return;
    }
    SharedCollectors& shared = sharedCollectors();
    const std::lock_guard<std::mutex> lock(shared.mutex);
    if (!shared.stack.empty()) shared.stack.back()->add(message);
  }
};

template <class T>
T numberAt(std::string_view bytes, std::size_t at) {
  T value{};
  std::memcpy(&value, bytes.data() + at, sizeof value);
  return value;
}

// True when a binary file ends before its table of contents, or a section named there, does. The
// reader itself takes some such files for whole.
bool isCutOff(std::string_view bytes) {
  // Magic, version and offset of the table; there a count and entries of name, offset and size, all
  // of eight bytes each but the name's sixteen.
  constexpr std::size_t kTablePlace = 16, kEntry = 32, kName = 16;
  if (bytes.size() < kTablePlace + 8) return true;
  const auto table = numberAt<std::uint64_t>(bytes, kTablePlace);
  if (table > bytes.size() || bytes.size() - table < 8) return true;
  const auto count = numberAt<std::uint64_t>(bytes, table);
  if (count > (bytes.size() - table - 8) / kEntry) return true;
  for (std::uint64_t i = 0; i < count; ++i) {
    const std::size_t entry = table + 8 + i * kEntry + kName;
    const auto start = numberAt<std::uint64_t>(bytes, entry);
    const auto size = numberAt<std::uint64_t>(bytes, entry + 8);
    if (start > bytes.size() || size > bytes.size() - start) return true;
  }
  return false;
}

constexpr const char* kCutOff = "the file is cut off";
constexpr const char* kTooManyPackages = "packages nested more than 10 deep";
constexpr std::size_t kMaxPackageNesting = 10;

bool isPackage(std::string_view bytes) { return bytes.substr(0, 4) == "PK\3\4"; }
bool isCrate(std::string_view bytes) { return bytes.substr(0, 8) == "PXR-USDC"; }

// True when a file of a package may be opened as a scene: by its beginning, or by its name, in
// which OpenUSD does not tell small letters from capitals. Pictures are none of either; their bytes
// would count as brackets.
bool mayBeScene(const std::string& name, std::string_view bytes) {
  if (bytes.substr(0, 5) == "#usda" || isCrate(bytes) || isPackage(bytes)) return true;
  std::string extension = std::filesystem::path(name).extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return extension.compare(0, 4, ".usd") == 0;
}

// A part of a file that lies in memory as a file of its own.
class BytesAsset final : public pxr::ArAsset {
 public:
  explicit BytesAsset(std::string_view bytes) : bytes_(bytes) {}
  std::size_t GetSize() const override { return bytes_.size(); }
  std::shared_ptr<const char> GetBuffer() const override {
    return {std::shared_ptr<void>(), bytes_.data()};
  }
  std::size_t Read(void* buffer, std::size_t count, std::size_t offset) const override {
    if (offset >= bytes_.size()) return 0;
    const std::size_t size = std::min(count, bytes_.size() - offset);
    std::memcpy(buffer, bytes_.data() + offset, size);
    return size;
  }
  std::pair<std::FILE*, std::size_t> GetFileUnsafe() const override { return {nullptr, 0}; }

 private:
  std::string_view bytes_;
};

// Why no parser should see these bytes, or null.
const char* whyUnfit(std::string_view bytes, std::size_t packageDepth = 0) {
  if (isCrate(bytes)) return isCutOff(bytes) ? kCutOff : nullptr;
  if (!isPackage(bytes)) return whyTextIsUnfit(bytes);

  // A package: its files are stored as they are, and packages may be among them.
  if (packageDepth >= kMaxPackageNesting) return kTooManyPackages;
  const pxr::SdfZipFile zip = pxr::SdfZipFile::Open(std::make_shared<BytesAsset>(bytes));
  if (!zip) return nullptr;
  for (auto entry = zip.begin(); entry != zip.end(); ++entry) {
    const pxr::SdfZipFile::FileInfo info = entry.GetFileInfo();
    if (info.dataOffset > bytes.size() || info.size > bytes.size() - info.dataOffset)
      return kCutOff;
    const std::string_view inner = bytes.substr(info.dataOffset, info.size);
    if (!mayBeScene(*entry, inner)) continue;
    if (const char* const why = whyUnfit(inner, packageDepth + 1)) return why;
  }
  return nullptr;
}

// Refuses files that would overflow a parser's stack or are not whole. Every layer is opened
// through the resolver, also those that a composition finds by itself, so this is the one place
// that sees them all before a parser does.
const char* whyUnfit(const pxr::ArAsset& asset) {
  const std::size_t size = asset.GetSize();
  const std::shared_ptr<const char> buffer = asset.GetBuffer();
  if (!buffer || size == 0) return nullptr;
  return whyUnfit(std::string_view(buffer.get(), size));
}

}  // namespace

Collector::Collector(Problems& problems, bool alsoOwnThreads)
    : previous_(std::exchange(tlsProblems, &problems)), shared_(alsoOwnThreads) {
  if (!shared_) return;
  SharedCollectors& shared = sharedCollectors();
  const std::lock_guard<std::mutex> lock(shared.mutex);
  shared.stack.push_back(&problems);
}

Collector::~Collector() {
  if (shared_) {
    SharedCollectors& shared = sharedCollectors();
    const std::lock_guard<std::mutex> lock(shared.mutex);
    const auto mine = std::find(shared.stack.rbegin(), shared.stack.rend(), tlsProblems);
    if (mine != shared.stack.rend()) shared.stack.erase(std::next(mine).base());
  }
  tlsProblems = previous_;
}

OpensPlainData::OpensPlainData() : before_(std::exchange(tlsOpensPlainData, true)) {}
OpensPlainData::~OpensPlainData() { tlsOpensPlainData = before_; }

namespace {

// Plain data are not, but for the packages that they may lie in.
bool mayBeParsed(const pxr::ArAsset& asset) {
  if (!tlsOpensPlainData) return true;
  char beginning[4] = {};
  return asset.Read(beginning, sizeof beginning, 0) == sizeof beginning &&
         isPackage({beginning, sizeof beginning});
}

}  // namespace

bool ReadContext::isInside(const std::string& resolved) const {
  const std::string& root = state_->root;
  if (root.empty()) return true;
  std::error_code failed;
  const std::string file =
      std::filesystem::canonical(pxr::ArSplitPackageRelativePathOuter(resolved).first, failed)
          .string();
  if (failed) return false;
  return file.compare(0, root.size(), root) == 0 &&
         (root.back() == '/' || file.size() == root.size() || file[root.size()] == '/');
}

bool ReadContext::countLayer() const {
  return state_->layers.fetch_add(1, std::memory_order_relaxed) < state_->mostLayers;
}

// What OpenUSD writes, into a file of ours.
class UnfinishedAsset final : public pxr::ArWritableAsset {
 public:
  explicit UnfinishedAsset(UnfinishedFile& file) : file_(file) {}
  std::size_t Write(const void* bytes, std::size_t count, std::size_t offset) override {
    return file_.write(bytes, count, offset) ? count : 0;
  }
  bool Close() override { return file_.finish(); }

 private:
  UnfinishedFile& file_;
};

// The file system, with a look at every text before it is parsed, and as far as the stage that asks
// may see.
class SceneResolver : public pxr::ArDefaultResolver {
 protected:
  pxr::ArResolvedPath _Resolve(const std::string& name) const override {
    using namespace pxr;  // the macro names its parts without it
    ArResolvedPath found = ArDefaultResolver::_Resolve(name);
    const ReadContext* const reading = _GetCurrentContextObject<ReadContext>();
    if (!found || !reading || reading->isInside(found.GetPathString())) return found;
    TF_WARN("%s%s", name.c_str(), kLiesOutside);
    return {};
  }

  std::shared_ptr<pxr::ArAsset> _OpenAsset(const pxr::ArResolvedPath& path) const override {
    using namespace pxr;  // the macro names its parts without it
    // To open a pipe would wait for who writes it, and a device may never end.
    std::error_code none;
    const std::filesystem::file_status status = std::filesystem::status(path.GetPathString(), none);
    if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
      TF_RUNTIME_ERROR("%s: it is no regular file", path.GetPathString().c_str());
      return nullptr;
    }
    const ReadContext* const reading = _GetCurrentContextObject<ReadContext>();
    if (!tlsOpensPlainData && reading && !reading->countLayer()) {
      TF_RUNTIME_ERROR("%s: it is one file too many", path.GetPathString().c_str());
      return nullptr;
    }
    std::shared_ptr<pxr::ArAsset> asset = pxr::ArDefaultResolver::_OpenAsset(path);
    const char* const why = asset && mayBeParsed(*asset) ? whyUnfit(*asset) : nullptr;
    if (!why) return asset;
    TF_RUNTIME_ERROR("%s: %s", path.GetPathString().c_str(), why);
    return nullptr;
  }

  std::shared_ptr<pxr::ArWritableAsset> _OpenAssetForWrite(const pxr::ArResolvedPath& path,
                                                           WriteMode mode) const override {
    UnfinishedFile* const file = UnfinishedFile::of(path.GetPathString());
    if (!file) return pxr::ArDefaultResolver::_OpenAssetForWrite(path, mode);
    if (!file->open()) return nullptr;
    return std::make_shared<UnfinishedAsset>(*file);
  }
};

namespace {

// The plug-in tables that scenes need. With OpenUSD inside this library its own lie there too; it
// finds those by itself, and would end the process without them.
#ifdef VELA_OPENUSD_STATIC
constexpr const char* kTables[] = {"ovo", "ar", "sdf"};
#else
constexpr const char* kTables[] = {"ovo"};
#endif

// OpenUSD keeps paths of prims and of properties in regions of 2^24 records of 24 bytes each, which
// it reserves with the first of them, and does not look whether it got them. A thread with its heap
// takes 160 MB on top.
constexpr std::size_t kAddressSpace = 2 * (std::size_t{24} << 24) + (std::size_t{160} << 20);

bool hasAddressSpace() {
  void* const space =
      mmap(nullptr, kAddressSpace, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (space == MAP_FAILED) return false;
  munmap(space, kAddressSpace);
  return true;
}

std::string start() {
  if (!hasAddressSpace())
    return "out of memory: reading scenes takes " + std::to_string(kAddressSpace >> 20) +
           " MB of address space, and this process may not have as much (ulimit -v)";
  const std::filesystem::path tables = libraryFolder() / "vela" / "usd";
  for (const char* const name : kTables) {
    const std::filesystem::path file = tables / name / "resources" / "plugInfo.json";
    std::error_code ignored;
    if (!std::filesystem::exists(file, ignored))
      return "the installation is incomplete: " + file.string() + " is missing";
  }
  static Delegate* const delegate = new Delegate;
  pxr::TfDiagnosticMgr::GetInstance().AddDelegate(delegate);
  pxr::PlugRegistry::GetInstance().RegisterPlugins((tables / "ovo" / "resources").string());
  // Counts only as long as nobody else in the process has used a resolver: a host that shares its
  // OpenUSD with this library keeps its own.
  pxr::ArSetPreferredResolver("ovo::detail::SceneResolver");
  return {};
}

}  // namespace

const char* takeRoot(const std::string& folder, std::string& root) {
  std::error_code failed;
  root = std::filesystem::canonical(folder, failed).string();
  if (failed || !std::filesystem::is_directory(root, failed)) return "is no folder";
  if (!dynamic_cast<const SceneResolver*>(&pxr::ArGetUnderlyingResolver()))
    return "keeps nothing inside: this process resolves file names in its own way";
  return nullptr;
}

const std::string& startRuntime() {
  static const std::string* const trouble = new std::string(start());
  return *trouble;
}

}  // namespace ovo::detail

// Where the registration macro expects to stand.
namespace TF_INTERNAL_NS {
TF_REGISTRY_FUNCTION(TfType) { Ar_DefineResolver<ovo::detail::SceneResolver, ArDefaultResolver>(); }
}  // namespace TF_INTERNAL_NS
