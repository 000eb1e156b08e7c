#pragma once
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tovani/Constants.hpp"
#include "tovani/Export.hpp"
#include "tovani/Platform.hpp"
#include "tovani/Readiness.hpp"
#include "tovani/ResultCode.hpp"
#include "tovani/TovaniCategory.hpp"
#include "tovani/TovaniDelegate.hpp"
#include "tovani/TovaniInspector.hpp"
#include "tovani/View.hpp"

namespace tovani {

class tovaniViewer;

// The host's whole surface. Call everything on the main thread (the thread that runs the
// platform's main queue). Nothing here throws; every outcome arrives through the delegate.
class TOVANI_EXPORT TovaniSDK {
 public:
  // One category element as a binding hands it over. std::nullopt stands for an element
  // that is not exactly a string (a nil entry, a number, a string subclass): it is skipped.
  using CategoryElement = std::optional<std::string>;
  using CategoryList = std::vector<CategoryElement>;

  // Hands the SDK its platform. Must precede the first other call; later calls are
  // ignored with a log line. Without it the built-in default platform is used.
  static void setPlatform(std::shared_ptr<Platform> platform);

  // true selects the test ad host. Read only at start-up, so call it before init.
  static void setDevType(bool devType);
  static void init(const std::string& mediaCode, const std::string& slotCode);
  static void init(const std::string& mediaCode, const std::string& slotCode,
                   const std::optional<CategoryList>& categories);
  // Held weakly: the SDK never keeps the host's object alive.
  static void delegate(const std::shared_ptr<TovaniDelegate>& delegate);
  // Attaches the ad view to the host's screen and starts a showing. Does nothing before
  // any other facade call has created the SDK.
  static void tovaniShow(const std::shared_ptr<View>& hostRootView);
  static std::shared_ptr<TovaniSDK> sharedInstance();

  // What the SDK holds and what tovaniShow would do now. Answers at once from memory, the
  // store (read-only) and the documents folder; never touches the network, never writes,
  // never creates the SDK. Safe at any time on the main thread.
  TOVANI_EXPORT static Readiness readiness();
  // Receives one event per decision of every showing (see TovaniInspector.hpp); nullptr
  // removes it. May be set before any other call.
  TOVANI_EXPORT static void setInspector(std::shared_ptr<TovaniInspector> inspector);

  TovaniSDK();
  ~TovaniSDK();
  TovaniSDK(const TovaniSDK&) = delete;
  TovaniSDK& operator=(const TovaniSDK&) = delete;

  std::shared_ptr<tovaniViewer> getMainViewer() const;
  std::shared_ptr<TovaniDelegate> getDelegate() const { return delegate_.lock(); }
  void setDelegate(const std::shared_ptr<TovaniDelegate>& d) { delegate_ = d; }

  // "|"-joined codes; elements that are not strings are skipped, "" for none or empty.
  static std::string convertCategory(const std::optional<CategoryList>& categories);

 private:
  std::weak_ptr<TovaniDelegate> delegate_;
};

}  // namespace tovani

// C entry point for bindings whose category list may hold non-strings: a NULL entry of
// `categories` is an element that is not a string and is skipped. `categories` may be
// NULL (no list).
extern "C" TOVANI_EXPORT void tovani_init_with_categories(const char* mediaCode,
                                                          const char* slotCode,
                                                          const char* const* categories,
                                                          size_t count);
