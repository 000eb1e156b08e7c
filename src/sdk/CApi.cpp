// The C interface over the facade. Each entry checks what C cannot (NULL, text that is not
// UTF-8), says so in one log line, and never lets an exception reach a C caller.
#include <cmath>
#include <exception>
#include <memory>
#include <new>
#include <optional>
#include <string>

#include "sdk/FacadeState.hpp"
#include "tovani/TovaniSDK.hpp"
#include "tovani/ViewHandle.hpp"
#include "tovani/tovani.h"
#include "util/Text.hpp"

struct tovani_view {
  std::shared_ptr<tovani::View> view;
};

namespace tovani {

namespace {

// Runs `work`; anything thrown becomes a log line.
template <typename Work>
void cEntry(const char* name, Work&& work) noexcept {
  try {
    work();
  } catch (const std::exception& e) {
    try {
      facadeLogLine(std::string("tovani: ") + name + " failed: " + e.what());
    } catch (...) {
    }
  } catch (...) {
    try {
      facadeLogLine(std::string("tovani: ") + name + " failed");
    } catch (...) {
    }
  }
}

// A code argument as the facade takes it: NULL and non-UTF-8 text become "" with a log line.
std::string codeArgument(const char* function, const char* what, const char* value) {
  if (!value) {
    facadeLogLine(std::string("tovani: ") + function + ": " + what + " is NULL; taken as empty");
    return {};
  }
  std::string text(value);
  if (!isValidUtf8(text)) {
    facadeLogLine(std::string("tovani: ") + function + ": " + what +
                  " is not UTF-8; taken as empty");
    return {};
  }
  return text;
}

// The delegate a C callback stands for. The facade holds delegates weakly, so this layer
// keeps the current one alive.
class CallbackDelegate final : public TovaniDelegate {
 public:
  CallbackDelegate(tovani_callback callback, void* userData)
      : callback_(callback), userData_(userData) {}
  void tovaniCallBack(int32_t result) override { callback_(static_cast<int>(result), userData_); }

 private:
  tovani_callback callback_;
  void* userData_;
};

std::shared_ptr<CallbackDelegate>& currentDelegate() {
  static std::shared_ptr<CallbackDelegate> current;
  return current;
}

double sizeArgument(double value) {
  return std::isfinite(value) && value > 0 ? value : 0;
}

}  // namespace

tovani_view* wrapView(std::shared_ptr<View> view) {
  if (!view) return nullptr;
  return new (std::nothrow) tovani_view{std::move(view)};
}

std::shared_ptr<View> unwrapView(const tovani_view* handle) {
  return handle ? handle->view : nullptr;
}

}  // namespace tovani

using namespace tovani;

extern "C" {

const char* tovani_version(void) {
  return TOVANI_SDK_VERSION;
}

int tovani_started(void) {
  int started = 0;
  cEntry("tovani_started", [&] { started = facadeStarted() ? 1 : 0; });
  return started;
}

void tovani_set_dev_type(int dev_type) {
  cEntry("tovani_set_dev_type", [&] { TovaniSDK::setDevType(dev_type != 0); });
}

void tovani_init(const char* media_code, const char* slot_code) {
  cEntry("tovani_init", [&] {
    const std::string media = codeArgument("tovani_init", "media code", media_code);
    const std::string slot = codeArgument("tovani_init", "slot code", slot_code);
    TovaniSDK::init(media, slot);
  });
}

void tovani_init_with_categories(const char* media_code, const char* slot_code,
                                 const char* const* categories, size_t count) {
  static const char* const kName = "tovani_init_with_categories";
  cEntry(kName, [&] {
    const std::string media = codeArgument(kName, "media code", media_code);
    const std::string slot = codeArgument(kName, "slot code", slot_code);
    std::optional<TovaniSDK::CategoryList> list;
    if (categories) {
      list.emplace();
      for (size_t i = 0; i < count; ++i) {
        const char* entry = categories[i];
        // A NULL entry is a binding's non-string element: skipped without a trace.
        if (entry && !isValidUtf8(entry)) {
          facadeLogLine(std::string("tovani: ") + kName + ": category " + std::to_string(i) +
                        " is not UTF-8; skipped");
          entry = nullptr;
        }
        list->push_back(entry ? std::optional<std::string>(entry) : std::nullopt);
      }
    } else if (count > 0) {
      facadeLogLine(std::string("tovani: ") + kName + ": categories is NULL with count " +
                    std::to_string(count) + "; no list");
    }
    TovaniSDK::init(media, slot, list);
  });
}

void tovani_set_callback(tovani_callback callback, void* user_data) {
  cEntry("tovani_set_callback", [&] {
    auto& current = currentDelegate();
    if (!callback) {
      facadeLogLine("tovani: tovani_set_callback: NULL callback; results are dropped");
      current.reset();
    } else {
      current = std::make_shared<CallbackDelegate>(callback, user_data);
    }
    TovaniSDK::delegate(current);
  });
}

tovani_view* tovani_view_create(double width, double height) {
  tovani_view* handle = nullptr;
  cEntry("tovani_view_create", [&] {
    auto view = std::make_shared<View>();
    view->frame = {0, 0, sizeArgument(width), sizeArgument(height)};
    handle = wrapView(std::move(view));
  });
  return handle;
}

void tovani_view_release(tovani_view* view) {
  delete view;
}

void tovani_show(tovani_view* host_view) {
  cEntry("tovani_show", [&] {
    if (!facadeStarted()) {
      facadeLogLine("tovani: tovani_show before the SDK started; nothing is shown");
      return;
    }
    TovaniSDK::tovaniShow(unwrapView(host_view));
  });
}

}  // extern "C"
