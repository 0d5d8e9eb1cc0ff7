// A clipboard backend for tests: an in-memory clipboard whose operations can be made to throw,
// and which records what the service asked of it.
#pragma once

#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/clipboard.hpp"
#include "platform/memory/memory_clipboard.hpp"

namespace test_support {

class ScriptedBackend final : public pf::clipboard::PFClipboardBackend {
 public:
  std::vector<std::u16string> availableMimeTypes(pf::clipboard::PFClipboardMode mode) override {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      ++listCalls_;
      if (failList_) {
        throw std::runtime_error("listing failed");
      }
    }
    return inner_.availableMimeTypes(mode);
  }

  pf::clipboard::ClipboardContent read(std::u16string const& mimeType,
                                       pf::clipboard::PFClipboardMode mode) override {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      reads_.push_back(mimeType);
      if (failReads_.count(mimeType) != 0) {
        throw std::runtime_error("read failed");
      }
    }
    return inner_.read(mimeType, mode);
  }

  void write(std::unique_ptr<pf::clipboard::PFClipboardData> data,
             pf::clipboard::PFClipboardMode mode) override {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      ++writes_;
      if (failWrite_) {
        throw std::runtime_error("write failed");
      }
      lastWrite_ = std::make_shared<pf::clipboard::PFClipboardData>(*data);
      lastMode_ = mode;
    }
    inner_.write(std::move(data), mode);
  }

  // Puts content on the clipboard without going through write() (another program copied).
  void put(pf::clipboard::PFClipboardData data,
           pf::clipboard::PFClipboardMode mode = pf::clipboard::PFClipboardMode::clipboard) {
    inner_.copyFromOtherProgram(std::move(data), mode);
  }

  void failListing(bool fail) {
    std::lock_guard<std::mutex> lock(mutex_);
    failList_ = fail;
  }
  void failReadOf(std::u16string const& mimeType) {
    std::lock_guard<std::mutex> lock(mutex_);
    failReads_.insert(mimeType);
  }
  void failWrites(bool fail) {
    std::lock_guard<std::mutex> lock(mutex_);
    failWrite_ = fail;
  }

  std::vector<std::u16string> reads() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return reads_;
  }
  int listCalls() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return listCalls_;
  }
  int writes() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return writes_;
  }
  // A copy of the payload of the last successful write() (images shared, not copied).
  std::shared_ptr<pf::clipboard::PFClipboardData> lastWrite() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return lastWrite_;
  }
  pf::clipboard::PFClipboardMode lastMode() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return lastMode_;
  }

 private:
  mutable std::mutex mutex_;
  pf::clipboard::PFMemoryClipboard inner_;
  bool failList_ = false;
  bool failWrite_ = false;
  std::set<std::u16string> failReads_;
  std::vector<std::u16string> reads_;
  int listCalls_ = 0;
  int writes_ = 0;
  std::shared_ptr<pf::clipboard::PFClipboardData> lastWrite_;
  pf::clipboard::PFClipboardMode lastMode_ = pf::clipboard::PFClipboardMode::clipboard;
};

// Installs a backend for the life of a test and puts the previous one back.
class InstalledBackend {
 public:
  explicit InstalledBackend(std::shared_ptr<pf::clipboard::PFClipboardBackend> backend)
      : previous_(pf::clipboard::installClipboardBackend(std::move(backend))) {}
  ~InstalledBackend() { pf::clipboard::installClipboardBackend(previous_); }
  InstalledBackend(InstalledBackend const&) = delete;
  InstalledBackend& operator=(InstalledBackend const&) = delete;

 private:
  std::shared_ptr<pf::clipboard::PFClipboardBackend> previous_;
};

}  // namespace test_support
