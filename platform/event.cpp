#include "platform/event.hpp"

#include <algorithm>
#include <condition_variable>
#include <stdexcept>
#include <thread>
#include <vector>

#include <boost/smart_ptr/owner_less.hpp>

namespace pf::event {
namespace {

// Lets unregister() wait for calls of a listener that are under way on other threads.
// Boost.Signals2 disconnects without waiting for them, so every listener connected through a
// container runs inside such a gate.
struct ListenerGate {
  std::mutex mutex;
  std::condition_variable idle;
  bool closed = false;
  std::vector<std::thread::id> runners;  // one entry per call under way
};

class GateEntry {
 public:
  explicit GateEntry(std::shared_ptr<ListenerGate> gate) : gate_(std::move(gate)) {}
  bool enter() {
    std::lock_guard<std::mutex> lock(gate_->mutex);
    if (gate_->closed) {
      return false;
    }
    gate_->runners.push_back(std::this_thread::get_id());
    entered_ = true;
    return true;
  }
  ~GateEntry() {
    if (!entered_) {
      return;
    }
    std::lock_guard<std::mutex> lock(gate_->mutex);
    auto& runners = gate_->runners;
    runners.erase(std::find(runners.begin(), runners.end(), std::this_thread::get_id()));
    gate_->idle.notify_all();
  }

 private:
  std::shared_ptr<ListenerGate> gate_;
  bool entered_ = false;
};

// The connection body identifies a connection for as long as anyone refers to it.
using BodyRef = boost::weak_ptr<boost::signals2::detail::connection_body_base>;

struct BodyAccess : boost::signals2::connection {
  explicit BodyAccess(boost::signals2::connection const& c) : boost::signals2::connection(c) {}
  BodyRef body() const { return _weak_connection_body; }
};

std::mutex g_gatesMutex;
std::map<BodyRef, std::weak_ptr<ListenerGate>, boost::owner_less<BodyRef>> g_gates;

void rememberGate(boost::signals2::connection const& connection,
                  std::shared_ptr<ListenerGate> const& gate) {
  std::lock_guard<std::mutex> lock(g_gatesMutex);
  for (auto it = g_gates.begin(); it != g_gates.end();) {
    it = it->second.expired() ? g_gates.erase(it) : std::next(it);
  }
  g_gates.emplace(BodyAccess(connection).body(), gate);
}

std::shared_ptr<ListenerGate> takeGate(boost::signals2::connection const& connection) {
  std::lock_guard<std::mutex> lock(g_gatesMutex);
  auto it = g_gates.find(BodyAccess(connection).body());
  if (it == g_gates.end()) {
    return nullptr;
  }
  auto gate = it->second.lock();
  g_gates.erase(it);
  return gate;
}

std::mutex g_makerMutex;
PFAbstractEventListenerFactory::ManagerMaker g_managerMaker;

class ClipboardListenerManager final : public PFEventListenerManager {
 public:
  bool prepareDelivery(PFServiceType const& service, PFEventId const&) override {
    PFSignalLocator::Instance().containerOf(service);
    return true;
  }
};

}  // namespace

// --- containers ---

PFSignalContainer::~PFSignalContainer() = default;

PFBasicSignalContainer::PFBasicSignalContainer() = default;
PFBasicSignalContainer::~PFBasicSignalContainer() = default;

PFBasicSignalContainer::Signal& PFBasicSignalContainer::signalOf(PFEventId event) {
  std::lock_guard<std::mutex> lock(mutex_);
  auto& signal = signals_[event];
  if (!signal) {
    signal = std::make_unique<Signal>();
  }
  return *signal;
}

std::unique_ptr<boost::signals2::connection> PFBasicSignalContainer::connect(
    PFEventId const& event, std::function<void()> listener) {
  auto gate = std::make_shared<ListenerGate>();
  auto connection = std::make_unique<boost::signals2::connection>(
      signalOf(event).connect([gate, listener = std::move(listener)] {
        GateEntry entry(gate);
        if (entry.enter()) {
          listener();
        }
      }));
  rememberGate(*connection, gate);
  return connection;
}

void PFBasicSignalContainer::emit(PFEventId const& event) {
  signalOf(event)();
}

// --- locator ---

PFSignalLocator::PFSignalLocator() = default;
PFSignalLocator::~PFSignalLocator() = default;

PFSignalLocator& PFSignalLocator::Instance() {
  static PFSignalLocator locator;
  return locator;
}

std::unordered_map<PFServiceType, std::unique_ptr<PFSignalContainer>>&
PFSignalLocator::locateSignals() {
  return containers_;
}

PFSignalContainer& PFSignalLocator::containerOf(PFServiceType service) {
  std::lock_guard<std::mutex> lock(mutex_);
  auto& container = containers_[service];
  if (!container) {
    container = std::make_unique<PFBasicSignalContainer>();
  }
  return *container;
}

// --- registration ---

PFEventRegistration::PFEventRegistration(std::unique_ptr<boost::signals2::connection> connection)
    : connection_(std::move(connection)) {}

PFEventRegistration::~PFEventRegistration() = default;

void PFEventRegistration::unregister() {
  if (!connection_) {
    return;
  }
  auto gate = takeGate(*connection_);
  connection_->disconnect();
  if (!gate) {
    return;
  }
  std::unique_lock<std::mutex> lock(gate->mutex);
  gate->closed = true;
  // A call on this very thread (unregister from inside the listener) cannot be waited for.
  auto const self = std::this_thread::get_id();
  gate->idle.wait(lock, [&] {
    return std::all_of(gate->runners.begin(), gate->runners.end(),
                       [&](std::thread::id id) { return id == self; });
  });
}

// --- managers ---

PFEventListenerManager::~PFEventListenerManager() = default;

std::unique_ptr<PFEventListenerManager> PFAbstractEventListenerFactory::getEventListenerManager(
    PFEventComponent const& component) {
  ManagerMaker maker;
  {
    std::lock_guard<std::mutex> lock(g_makerMutex);
    maker = g_managerMaker;
  }
  if (maker) {
    return maker(component);
  }
  if (component != PFEventComponent::clipboard) {
    throw std::invalid_argument("no event listener manager for component " +
                                std::to_string(static_cast<int>(component)));
  }
  return std::make_unique<ClipboardListenerManager>();
}

void PFAbstractEventListenerFactory::setManagerMaker(ManagerMaker maker) {
  std::lock_guard<std::mutex> lock(g_makerMutex);
  g_managerMaker = std::move(maker);
}

}  // namespace pf::event
