#include "WindowedDemo.hpp"

#include <gtk/gtk.h>

#include <filesystem>
#include <iostream>
#include <map>

#include "../FreshProcess.hpp"
#include "../Inventory.hpp"
#include "DesktopSession.hpp"
#include "tovani/TovaniSDK.hpp"

namespace tovani::demo {

namespace {

constexpr int kReward = 10;

class Host final : public TovaniDelegate {
 public:
  std::function<void(int32_t)> onResult;
  void tovaniCallBack(int32_t result) override {
    if (onResult) onResult(result);
  }
};

std::string resultText(int32_t r) {
  static const std::map<int32_t, std::string> names = {{0, "0 — rewarded"},
                                                       {1, "1 — no ad ready"},
                                                       {2, "2 — failed, no reward"},
                                                       {3, "3 — left before the reward point"}};
  auto it = names.find(r);
  return it == names.end() ? std::to_string(r) : it->second;
}

// The host app's own widgets, under the SDK's overlay.
struct HostUi {
  GtkWidget* window = nullptr;
  GtkWidget* balance = nullptr;
  GtkWidget* button = nullptr;
  GtkWidget* lastCallback = nullptr;
  GtkWidget* status = nullptr;
};

HostUi buildUi() {
  HostUi ui;
  ui.window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  gtk_window_set_title(GTK_WINDOW(ui.window), "tovani demo host");
  gtk_window_set_default_size(GTK_WINDOW(ui.window), 375, 667);
  GtkCssProvider* css = gtk_css_provider_new();
  gtk_css_provider_load_from_data(css,
                                  "#host { background: #f4f1ea; }"
                                  "#balance { font-size: 32px; font-weight: bold; color: #a06a00; }"
                                  "#watch { padding: 12px 18px; font-size: 16px; }"
                                  "#last, #status { color: #555; }",
                                  -1, nullptr);
  gtk_style_context_add_provider_for_screen(gdk_screen_get_default(), GTK_STYLE_PROVIDER(css),
                                            GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
  g_object_unref(css);
  GtkWidget* box = gtk_box_new(GTK_ORIENTATION_VERTICAL, 18);
  gtk_widget_set_name(box, "host");
  gtk_widget_set_valign(box, GTK_ALIGN_FILL);
  gtk_container_set_border_width(GTK_CONTAINER(box), 24);
  GtkWidget* title = gtk_label_new("Coin Garden");
  gtk_widget_set_margin_top(title, 80);
  ui.balance = gtk_label_new("0 coins");
  gtk_widget_set_name(ui.balance, "balance");
  ui.button = gtk_button_new_with_label("Watch an ad for 10 coins");
  gtk_widget_set_name(ui.button, "watch");
  gtk_widget_set_sensitive(ui.button, FALSE);
  ui.lastCallback = gtk_label_new("Last callback: none yet");
  gtk_widget_set_name(ui.lastCallback, "last");
  ui.status = gtk_label_new("Preparing ads…");
  gtk_widget_set_name(ui.status, "status");
  for (GtkWidget* w : {title, ui.balance, ui.button, ui.lastCallback, ui.status}) {
    gtk_box_pack_start(GTK_BOX(box), w, FALSE, FALSE, 0);
  }
  gtk_container_add(GTK_CONTAINER(ui.window), box);
  return ui;
}

// Takes the screenshots at the moments a reader of the README wants to see.
struct Photographer {
  std::string dir;
  std::map<std::string, bool> taken;
  std::map<std::string, gint64> armedAt;
  bool pending = false;  // the host's picture is due before the ad

  // Shoots `name` once `condition` has held for `settle` seconds.
  void consider(GtkWidget* window, const std::string& name, bool condition, double settle) {
    if (dir.empty() || taken[name]) return;
    if (!condition) {
      armedAt.erase(name);
      return;
    }
    const gint64 now = g_get_monotonic_time();
    auto [it, fresh] = armedAt.emplace(name, now);
    if (now - it->second < static_cast<gint64>(settle * 1e6)) return;
    const std::string path = (std::filesystem::path(dir) / (name + ".png")).string();
    taken[name] = saveWindowPng(window, path);
    std::cout << (taken[name] ? "screenshot: " : "screenshot failed: ") << path << std::endl;
  }
  bool all() const {
    int n = 0;
    for (const auto& [name, ok] : taken) n += ok;
    return n == 5;
  }
};

}  // namespace

int runWindowed(const WindowedOptions& options) {
  gtk_init(nullptr, nullptr);
  HostUi ui = buildUi();

  adserver::Options serverOptions;
  serverOptions.scenarioFile = options.scenarioFile;
  gtk::GtkPlatformOptions platformOptions;
  platformOptions.video.playbackRate = options.speed;
  platformOptions.application.bundleName = "tovani-demo";
  platformOptions.logSink = [verbose = options.verbose](const std::string& line) {
    if (verbose) std::cout << "[sdk] " << line << std::endl;
  };
  platformOptions.application.launcher = [](const std::string& url) {
    std::cout << "host: asked to open " << url << std::endl;
    GError* error = nullptr;
    if (!g_app_info_launch_default_for_uri(url.c_str(), nullptr, &error)) {
      std::cout << "host: no handler for it (" << (error ? error->message : "?") << ")"
                << std::endl;
    }
    if (error != nullptr) g_error_free(error);
  };
  auto session = std::make_unique<DesktopSession>(GTK_WINDOW(ui.window), serverOptions,
                                                  std::move(platformOptions));
  auto& desktop = session->desktop;
  std::cout << "ad server on 127.0.0.1:" << session->server->httpPort() << "; documents "
            << session->documents << std::endl;

  int coins = 0;
  int status = 0;
  bool showing = false;
  auto host = std::make_shared<Host>();
  host->onResult = [&](int32_t result) {
    if (result == 0) coins += kReward;
    showing = false;
    gtk_label_set_text(GTK_LABEL(ui.balance), (std::to_string(coins) + " coins").c_str());
    gtk_label_set_text(GTK_LABEL(ui.lastCallback),
                       ("Last callback: " + resultText(result)).c_str());
    std::cout << "host: callback " << resultText(result) << std::endl;
  };
  auto root = desktop.hostView->rootView();
  auto show = [&] {
    if (showing) return;
    showing = true;
    TovaniSDK::tovaniShow(root);
  };
  std::function<void()> showFromButton = show;
  g_signal_connect_swapped(ui.button, "clicked",
                           G_CALLBACK(+[](std::function<void()>* f) { (*f)(); }), &showFromButton);
  g_signal_connect(ui.window, "delete-event", G_CALLBACK(+[](GtkWidget*, GdkEvent*, gpointer) {
                     gtk_main_quit();
                     return TRUE;
                   }),
                   nullptr);

  startAsFreshProcess();
  TovaniSDK::setPlatform(desktop.platform);
  TovaniSDK::init("DEMO_MEDIA", "DEMO_SLOT",
                  TovaniSDK::CategoryList{std::string(TovaniCategory::CASUAL)});
  TovaniSDK::delegate(host);
  gtk_widget_show_all(ui.window);

  Photographer camera{options.screenshotsDir, {}, {}, false};
  if (!camera.dir.empty()) std::filesystem::create_directories(camera.dir);
  bool ready = false;
  const gint64 started = g_get_monotonic_time();
  struct Watch {
    std::function<bool()> step;
  } watch;
  watch.step = [&] {
    if (!ready && readInventory().ready()) {
      ready = true;
      gtk_widget_set_sensitive(ui.button, TRUE);
      gtk_label_set_text(GTK_LABEL(ui.status), "An ad is ready.");
      if (!camera.dir.empty()) {
        // Let the button's new state draw before the host's own picture is taken.
        camera.pending = true;
      }
    }
    if (camera.pending) {
      camera.consider(ui.window, "host", true, 0.5);
      if (camera.taken["host"]) {
        camera.pending = false;
        show();
      }
    }
    if (!camera.dir.empty()) {
      auto label = findNode(*root, View::Kind::Label);
      auto skip = findNode(*root, View::Kind::ImageView, 101);
      auto action = findNode(*root, View::Kind::ImageView, 100);
      auto card = findNode(*root, View::Kind::WebView);
      camera.consider(ui.window, "countdown", label && !label->text.empty(), 1.0);
      camera.consider(ui.window, "skip", skip && skip->userInteractionEnabled, 0.4);
      camera.consider(ui.window, "action", action && !action->hidden, 0.4);
      camera.consider(ui.window, "endcard", card && !card->hidden, 2.0);
      const double elapsed = (g_get_monotonic_time() - started) / 1e6;
      if (camera.all() || elapsed > 180) {
        status = camera.all() ? 0 : 1;
        gtk_main_quit();
      }
    }
    return true;
  };
  const guint watcher = g_timeout_add(
      50, +[](gpointer data) -> gboolean { return static_cast<Watch*>(data)->step(); }, &watch);
  gtk_main();
  g_source_remove(watcher);

  endAsFreshProcess();
  session.reset();
  gtk_widget_destroy(ui.window);
  return status;
}

}  // namespace tovani::demo
