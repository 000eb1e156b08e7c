#include "tovani/TovaniSDK.hpp"

#include <iostream>
#include <mutex>

#include "sdk/FacadeState.hpp"
#include "util/Guard.hpp"
#include "viewer/ReadinessReport.hpp"
#include "viewer/tovaniViewer.hpp"

namespace tovani {

namespace {

struct FacadeState {
  // Guards the single creation of the instance. Recursive, because creating the viewer
  // calls the host's ports, which may call the facade again.
  std::recursive_mutex mutex;
  bool creating = false;
  std::shared_ptr<Platform> platform;
  std::shared_ptr<TovaniSDK> instance;
  std::shared_ptr<tovaniViewer> mainViewer;
  std::shared_ptr<TovaniInspector> inspector;
};

// Never destroyed: the facade and its viewer live for the whole process, and a host may exit
// from any point of a showing. Destroying the viewer among the other objects torn down at
// exit would run its tear-down against state that is already gone (the notification centre,
// the platform's threads), so it is deliberately left to the end of the process.
FacadeState& facade() {
  static auto* state = new FacadeState;
  return *state;
}

Log* facadeLog() {
  auto& p = facade().platform;
  return p && p->log ? p->log.get() : nullptr;
}

// Host calls run guarded: nothing the SDK does may throw into the host.
template <typename Work>
void hostCall(Work&& work) {
  runGuarded(facadeLog(), std::forward<Work>(work));
}

}  // namespace

std::shared_ptr<tovaniViewer> mainViewer() {
  return facade().mainViewer;
}

bool facadeStarted() {
  auto& state = facade();
  std::lock_guard lock(state.mutex);
  return state.instance != nullptr;
}

void facadeLogLine(const std::string& line) {
  if (Log* log = facadeLog()) {
    log->write(line);
  } else {
    std::cerr << "[tovani] " << line << "\n";
  }
}

void resetFacadeForTesting() {
  auto& state = facade();
  std::lock_guard lock(state.mutex);
  state.instance.reset();
  state.mainViewer.reset();
  state.platform.reset();
  state.inspector.reset();
}

// Every port must be there: the core calls them without checking.
static bool isComplete(const Platform& p) {
  return p.mainQueue && p.clock && p.http && p.players && p.webViews && p.screen && p.application &&
         p.device && p.reachability && p.log;
}

void TovaniSDK::setPlatform(std::shared_ptr<Platform> platform) {
  auto& state = facade();
  {
    std::lock_guard lock(state.mutex);
    if (!state.instance) {
      state.platform = std::move(platform);
      return;
    }
  }
  hostCall([] { facadeLog()->write("tovani: setPlatform after first use is ignored"); });
}

std::shared_ptr<TovaniSDK> TovaniSDK::sharedInstance() {
  auto& state = facade();
  std::lock_guard lock(state.mutex);
  if (state.instance || state.creating) return state.instance;
  if (!state.platform) state.platform = makeDefaultPlatform();
  if (!state.platform || !isComplete(*state.platform)) {
    std::cerr << "tovani: no complete platform was set and none is built in; the SDK stays idle\n";
    state.platform.reset();
    return nullptr;
  }
  state.creating = true;
  auto instance = std::make_shared<TovaniSDK>();
  state.creating = false;
  if (instance->getMainViewer()) state.instance = std::move(instance);
  return state.instance;
}

TovaniSDK::TovaniSDK() {
  // Creating a facade replaces the process's viewer, as the designed constructor does.
  auto& state = facade();
  std::lock_guard lock(state.mutex);
  if (!state.platform) state.platform = makeDefaultPlatform();
  if (!state.platform || !isComplete(*state.platform)) return;
  runGuarded(state.platform->log.get(), [&] {
    state.mainViewer = tovaniViewer::create(state.platform);
    if (state.inspector) state.mainViewer->inspection.attach(state.inspector, state.platform->log);
  });
}

void TovaniSDK::setInspector(std::shared_ptr<TovaniInspector> inspector) {
  hostCall([&] {
    auto& state = facade();
    std::lock_guard lock(state.mutex);
    state.inspector = std::move(inspector);
    if (state.mainViewer) {
      state.mainViewer->inspection.attach(state.inspector,
                                          state.platform ? state.platform->log : nullptr);
    }
  });
}

Readiness TovaniSDK::readiness() {
  Readiness answer;
  hostCall([&] {
    std::shared_ptr<tovaniViewer> viewer;
    {
      auto& state = facade();
      std::lock_guard lock(state.mutex);
      if (state.instance) viewer = state.mainViewer;
    }
    answer = viewer ? readViewerReadiness(*viewer) : Readiness{};
  });
  return answer;
}

TovaniSDK::~TovaniSDK() = default;

std::shared_ptr<tovaniViewer> TovaniSDK::getMainViewer() const {
  return facade().mainViewer;
}

void TovaniSDK::setDevType(bool devType) {
  hostCall([&] {
    if (auto sdk = sharedInstance()) sdk->getMainViewer()->devType = devType;
  });
}

void TovaniSDK::init(const std::string& mediaCode, const std::string& slotCode) {
  init(mediaCode, slotCode, std::nullopt);
}

void TovaniSDK::init(const std::string& mediaCode, const std::string& slotCode,
                     const std::optional<CategoryList>& categories) {
  hostCall([&] {
    auto sdk = sharedInstance();
    if (!sdk) return;
    const std::string joined = convertCategory(categories);
    auto viewer = sdk->getMainViewer();
    viewer->mediaCode = mediaCode;
    viewer->slotCode = slotCode;
    viewer->cateCode = joined;
    viewer->init_TNSDK();
  });
}

void TovaniSDK::delegate(const std::shared_ptr<TovaniDelegate>& delegate) {
  hostCall([&] {
    auto sdk = sharedInstance();
    if (!sdk) return;
    sdk->setDelegate(delegate);
    sdk->getMainViewer()->delegate = delegate;
  });
}

void TovaniSDK::tovaniShow(const std::shared_ptr<View>& hostRootView) {
  hostCall([&] {
    // Deliberately no creation here: before any other facade call there is nothing to show.
    std::shared_ptr<tovaniViewer> viewer;
    {
      auto& state = facade();
      std::lock_guard lock(state.mutex);
      if (!state.instance) return;
      viewer = state.mainViewer;
    }
    if (hostRootView) {
      hostRootView->addSubview(viewer);
    } else {
      viewer->log("tovani: tovaniShow without a host view; the ad view is not attached");
    }
    viewer->adPlay_TNSDK();
  });
}

std::string TovaniSDK::convertCategory(const std::optional<CategoryList>& categories) {
  std::string joined;
  if (!categories || categories->empty()) return joined;
  for (size_t i = 0; i < categories->size(); ++i) {
    const auto& element = (*categories)[i];
    if (!element) continue;  // not exactly a string: skipped without a trace
    if (joined.empty()) {
      joined = *element;
    } else {
      joined += "|" + *element;
    }
  }
  return joined;
}

}  // namespace tovani
