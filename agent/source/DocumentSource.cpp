#include "agent/source/DocumentSource.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <iostream>

#include "agent/Utf8.h"
#include "agent/source/MemoryBudget.h"
#include "agent/source/Sha256.h"

namespace Agent {

namespace {

constexpr double reloadDebounce = 0.1;  // seconds
constexpr double rearmRetry = 0.2;      // seconds, while the folder is missing
constexpr std::uint32_t fileEvents = IN_CLOSE_WRITE | IN_MOVED_TO;
constexpr std::uint32_t folderGone = IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED;

double wallNow() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace

DocumentSource::DocumentSource(Kiv::ActivityManager& loop, PhasedPublisher& publisher,
                               std::string path, ReloadStarted reloadStarted,
                               ReloadEnded reloadEnded)
    : loop_(loop),
      publisher_(publisher),
      path_(std::move(path)),
      reloadStarted_(std::move(reloadStarted)),
      reloadEnded_(std::move(reloadEnded)) {
  const std::filesystem::path p(path_);
  folder_ = p.parent_path().empty() ? "." : p.parent_path().string();
  name_ = p.filename().string();
  facts_.path = path_;
}

DocumentSource::~DocumentSource() {
  loop_.timerDel(reloadTimer_);
  loop_.timerDel(rearmTimer_);
  if (inotifyFd_ < 0) return;
  loop_.fdDel(inotifyFd_);
  ::close(inotifyFd_);
}

bool DocumentSource::doStart() {
  // Watch first: a change while the first document is read is not lost.
  inotifyFd_ = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (inotifyFd_ < 0 || !doWatch()) {
    std::cerr << "acl-agent: cannot watch " << folder_
              << " (reload with SIGHUP): " << std::strerror(errno) << "\n";
  } else {
    loop_.fdIs(inotifyFd_, [this] { handleFolderEvents(); });
  }
  return doPublish(false);
}

bool DocumentSource::doWatch() {
  watch_ =
      ::inotify_add_watch(inotifyFd_, folder_.c_str(), fileEvents | IN_DELETE_SELF | IN_MOVE_SELF);
  return watch_ >= 0;
}

void DocumentSource::doReload() {
  doPublish(true);
}

bool DocumentSource::doPublish(bool reload) {
  if (reload && reloadStarted_) reloadStarted_();
  StateDocument next;
  std::string why;
  try {
    next = loadStateDocument(path_);
    why = memoryRefusal(addedPairs(publisher_.current(), next), memoryHeadroom());
  } catch (const std::exception& e) {  // a refused document, or one too large to hold
    why = e.what();
  }
  if (!why.empty()) {
    std::cerr << "acl-agent: " << escapeInvalidUtf8(path_ + ": " + why) << "\n";
    facts_.lastRefused = wallNow();
    facts_.lastRefusedWhy = why;
    if (reload) std::cerr << "acl-agent: reload refused; the state in force stays\n";
    if (reload && reloadEnded_) reloadEnded_(false);
    return false;
  }
  facts_.lastRefused = 0;
  facts_.lastRefusedWhy.clear();
  pendingSha256_ = fileSha256Hex(path_);
  pendingReload_ = reload;
  publisher_.targetIs(std::move(next), path_, reload);
  return true;
}

void DocumentSource::handlePublished() {
  facts_.sha256 = pendingSha256_;
  facts_.applied = wallNow();
  if (pendingReload_ && reloadEnded_) reloadEnded_(true);
  pendingReload_ = false;
}

void DocumentSource::handleFolderEvents() {
  alignas(inotify_event) char buf[4096];
  bool ours = false, gone = false;
  ssize_t n;
  while ((n = ::read(inotifyFd_, buf, sizeof buf)) > 0) {
    for (char* p = buf; p < buf + n;) {
      const auto* ev = reinterpret_cast<const inotify_event*>(p);
      if (ev->wd == watch_) {
        ours = ours || (ev->len > 0 && (ev->mask & fileEvents) && name_ == ev->name);
        gone = gone || (ev->mask & folderGone);
      }
      p += sizeof(inotify_event) + ev->len;
    }
  }
  if (gone) {
    ::inotify_rm_watch(inotifyFd_, watch_);
    watch_ = -1;
    doRearm();
    return;
  }
  if (!ours) return;
  // Writers often touch a file more than once; one reload after they settle.
  loop_.timerDel(reloadTimer_);
  reloadTimer_ = loop_.timerIs(loop_.now() + reloadDebounce, [this] {
    reloadTimer_ = 0;
    doReload();
  });
}

void DocumentSource::doRearm() {
  rearmTimer_ = 0;
  if (!doWatch()) {
    // Not there yet (removed, then made again): try until it is.
    rearmTimer_ = loop_.timerIs(
        loop_.now() + rearmRetry, [this] { doRearm(); }, Kiv::ActivityManager::Kind::background);
    return;
  }
  std::cerr << "acl-agent: watching " << folder_ << " again (the folder was replaced)\n";
  loop_.timerDel(reloadTimer_);
  reloadTimer_ = loop_.timerIs(loop_.now() + reloadDebounce, [this] {
    reloadTimer_ = 0;
    doReload();
  });
}

}  // namespace Agent
