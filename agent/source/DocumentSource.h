// The state document as a source of the plug-in's inputs: reads and checks
// the JSON file (StateDocument.h) and hands each accepted document to the
// phased publisher. Re-read on SIGHUP (doReload) and when the file changes:
// its folder is watched, so a file replaced by rename is seen; changes
// within 0.1 s make one reload. When the folder itself is replaced (a
// configuration tool swapping it), the watch is armed again on the new
// folder, said in one line, and the document re-read:
//   acl-agent: watching DIR again (the folder was replaced)
// A reload is all or nothing: a refused document changes nothing, prints
//   acl-agent: FILE: PLACE: REASON
//   acl-agent: reload refused; the state in force stays
// and is kept as the last refusal until a document is accepted. A document
// whose new pairs would not fit in the memory left (MemoryBudget.h) is
// refused the same way, before any of it is published.
// Event-loop thread only.
#pragma once

#include <functional>
#include <string>

#include "agent/source/PhasedPublisher.h"
#include "platform/kiv/ActivityManager.h"

namespace Agent {

// What the source tells status. Times: seconds since the epoch, 0 never.
struct DocumentFacts {
  std::string path;
  std::string sha256;  // of the document in force
  double applied = 0;
  double lastRefused = 0;
  std::string lastRefusedWhy;
};

class DocumentSource {
 public:
  // Called when a reload starts, before the file is read (the service
  // manager is told the agent is reloading).
  using ReloadStarted = std::function<void()>;
  // Called when a reload ends: true once fully published, false refused.
  using ReloadEnded = std::function<void(bool applied)>;

  DocumentSource(Kiv::ActivityManager& loop, PhasedPublisher& publisher, std::string path,
                 ReloadStarted reloadStarted, ReloadEnded reloadEnded = nullptr);
  ~DocumentSource();
  DocumentSource(const DocumentSource&) = delete;
  DocumentSource& operator=(const DocumentSource&) = delete;

  // Watches the folder, then publishes the document; false (with the
  // message printed) when it is refused: the agent does not start.
  bool doStart();
  void doReload();
  // Called by the publisher once a document of ours is fully published.
  void handlePublished();
  const DocumentFacts& facts() const { return facts_; }

 private:
  bool doPublish(bool reload);
  bool doWatch();
  void handleFolderEvents();
  void doRearm();

  Kiv::ActivityManager& loop_;
  PhasedPublisher& publisher_;
  std::string path_, folder_, name_;
  ReloadStarted reloadStarted_;
  ReloadEnded reloadEnded_;
  bool pendingReload_ = false;  // the document waiting for its phase 2 is a reload
  int inotifyFd_ = -1;
  int watch_ = -1;
  Kiv::ActivityManager::TimerId reloadTimer_ = 0, rearmTimer_ = 0;
  std::string pendingSha256_;  // of the document waiting for its phase 2
  DocumentFacts facts_;
};

}  // namespace Agent
