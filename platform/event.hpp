// pf::event: the platform's event system, on Boost.Signals2.
//
// A process-wide locator holds one signal container per service; a container holds one signal
// per event id. Listeners connect through a container and are owned by a PFEventRegistration.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <unordered_map>

#include <boost/signals2/connection.hpp>
#include <boost/signals2/signal.hpp>

namespace pf::event {

enum class PFEventComponent : int {
  clipboard = 0,
};

enum class PFServiceType : int {
  clipboard = 0,
};

// An event within a service.
using PFEventId = std::uint32_t;

// Events of the clipboard service.
constexpr PFEventId kClipboardChanged = 1;

// Holds the signals of one service.
class PFSignalContainer {
 public:
  virtual ~PFSignalContainer();

  // Connects `listener` to the signal of `event`. The listener is called on the emitting thread.
  virtual std::unique_ptr<boost::signals2::connection> connect(PFEventId const& event,
                                                               std::function<void()> listener) = 0;

  // Calls every listener of `event` on the calling thread. An exception from a listener leaves
  // emit() and the remaining listeners of that emission are not called.
  virtual void emit(PFEventId const& event) = 0;
};

// The container of every service: a Boost.Signals2 signal per event id, made on first use.
class PFBasicSignalContainer final : public PFSignalContainer {
 public:
  PFBasicSignalContainer();
  ~PFBasicSignalContainer() override;

  std::unique_ptr<boost::signals2::connection> connect(PFEventId const& event,
                                                       std::function<void()> listener) override;
  void emit(PFEventId const& event) override;

 private:
  using Signal = boost::signals2::signal<void()>;
  Signal& signalOf(PFEventId event);

  std::mutex mutex_;  // guards the map only; signals are thread-safe themselves
  std::map<PFEventId, std::unique_ptr<Signal>> signals_;
};

// The process-wide locator of signal containers: a function-local static.
class PFSignalLocator {
 public:
  static PFSignalLocator& Instance();

  // The containers by service. Entries are added at start-up (installing a clipboard backend adds
  // the clipboard's) and never removed, so that lookups of an existing service may run on any
  // thread while others emit.
  std::unordered_map<PFServiceType, std::unique_ptr<PFSignalContainer>>& locateSignals();

  // The container of `service`, made if there is none. Safe to call from any thread.
  PFSignalContainer& containerOf(PFServiceType service);

  PFSignalLocator(PFSignalLocator const&) = delete;
  PFSignalLocator& operator=(PFSignalLocator const&) = delete;

 private:
  PFSignalLocator();
  ~PFSignalLocator();

  std::mutex mutex_;  // serializes containerOf
  std::unordered_map<PFServiceType, std::unique_ptr<PFSignalContainer>> containers_;
};

// Owns the connection of one listener.
class PFEventRegistration {
 public:
  explicit PFEventRegistration(std::unique_ptr<boost::signals2::connection> connection);
  // Releases the connection handle only: the listener stays connected unless unregister() ran.
  ~PFEventRegistration();

  PFEventRegistration(PFEventRegistration const&) = delete;
  PFEventRegistration& operator=(PFEventRegistration const&) = delete;

  // Detaches the listener. Returns once no call of it is running on another thread, so that no
  // call starts or is still under way afterwards. Called from inside the listener itself, it
  // returns at once (the running call finishes; no later call starts). Idempotent.
  void unregister();

  boost::signals2::connection const* connection() const noexcept { return connection_.get(); }

 private:
  std::unique_ptr<boost::signals2::connection> connection_;
};

// Prepares the delivery of the events of one component.
class PFEventListenerManager {
 public:
  virtual ~PFEventListenerManager();
  // Makes sure that `event` of `service` can be delivered (its container exists).
  virtual bool prepareDelivery(PFServiceType const& service, PFEventId const& event) = 0;
};

class PFAbstractEventListenerFactory {
 public:
  // The manager of `component`. Throws std::invalid_argument for an unknown component.
  static std::unique_ptr<PFEventListenerManager> getEventListenerManager(
      PFEventComponent const& component);

  // Replaces the way managers are made (nullptr restores the platform's). A host or a test uses
  // it to route or to refuse listener registration.
  using ManagerMaker = std::function<std::unique_ptr<PFEventListenerManager>(PFEventComponent)>;
  static void setManagerMaker(ManagerMaker maker);
};

}  // namespace pf::event
