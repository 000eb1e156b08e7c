#include "ports/webkit/WebKitDriver.hpp"

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

namespace tovani::ports {

namespace {

struct NoLog : Log {
  void write(const std::string&) override {}
};

}  // namespace

WebKitRig::WebKitRig() {
  if (!gtk_init_check(nullptr, nullptr)) throw std::runtime_error("no display for GTK");
  log = std::make_shared<NoLog>();
  gtk::WebKitViewOptions options;
  options.httpProxy = "http://127.0.0.1:" + port();
  factory = std::make_unique<gtk::WebKitWebViewFactory>(http_, loop_, log, options);
  window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  gtk_window_set_default_size(GTK_WINDOW(window), 400, 600);
}

WebKitRig::~WebKitRig() {
  views.clear();
  factory.reset();
  gtk_widget_destroy(window);
}

std::shared_ptr<WebView> WebKitRig::makeView() {
  auto view = factory->createWebView();
  auto* backed = dynamic_cast<gtk::WidgetBacked*>(view.get());
  if (views.empty() && backed != nullptr) {
    gtk_container_add(GTK_CONTAINER(window), backed->widget());
    gtk_widget_show_all(window);
  }
  views.push_back(view);
  return view;
}

int WebKitRig::pagesLoaded(WebView& view) {
  return dynamic_cast<gtk::WebKitView&>(view).pagesLoaded();
}

void WebKitRig::tapLink(WebView& view, const std::string& url) {
  auto& page = dynamic_cast<gtk::WebKitView&>(view);
  // The link is put on the page first, big and at the top, where a person would tap it.
  char* escaped = g_uri_escape_string(url.c_str(), nullptr, TRUE);
  const std::string quoted = escaped;
  g_free(escaped);
  script(page, "(() => { const a = document.createElement('a'); a.id = 'tapped'; a.href = " +
                   std::string("decodeURIComponent('") + quoted +
                   "'); a.textContent = 'link'; a.style = 'position:fixed;left:0;top:0;"
                   "width:200px;height:100px;display:block;background:#fff;z-index:9'; "
                   "document.body.appendChild(a); return 1; })()");
  clickOn(page, "tapped");
}

std::string WebKitRig::script(gtk::WebKitView& view, const std::string& js) {
  struct Call {
    std::string value;
    bool done = false;
  } call;
  webkit_web_view_evaluate_javascript(
      view.engineView(), js.c_str(), -1, nullptr, nullptr, nullptr,
      [](GObject* source, GAsyncResult* result, gpointer data) {
        auto* c = static_cast<Call*>(data);
        JSCValue* value =
            webkit_web_view_evaluate_javascript_finish(WEBKIT_WEB_VIEW(source), result, nullptr);
        if (value != nullptr) {
          char* text = jsc_value_to_string(value);
          c->value = text;
          g_free(text);
          g_object_unref(value);
        }
        c->done = true;
      },
      &call);
  loop_->runUntil([&] { return call.done; }, 10);
  return call.value;
}

void WebKitRig::clickOn(gtk::WebKitView& view, const std::string& id) {
  const std::string at = script(view, "(() => { const e = document.getElementById('" + id +
                                          "'); e.scrollIntoView({block: 'center'}); const r = "
                                          "e.getBoundingClientRect(); return (r.left + "
                                          "r.width / 2) + ',' + (r.top + r.height / 2); })()");
  double x = 0, y = 0;
  if (std::sscanf(at.c_str(), "%lf,%lf", &x, &y) != 2) return;
  GdkWindow* target = gtk_widget_get_window(view.widget());
  GdkDevice* pointer =
      gdk_seat_get_pointer(gdk_display_get_default_seat(gdk_display_get_default()));
  for (GdkEventType type : {GDK_MOTION_NOTIFY, GDK_BUTTON_PRESS, GDK_BUTTON_RELEASE}) {
    GdkEvent* event = gdk_event_new(type);
    if (type == GDK_MOTION_NOTIFY) {
      event->motion.window = GDK_WINDOW(g_object_ref(target));
      event->motion.x = x;
      event->motion.y = y;
      event->motion.time = GDK_CURRENT_TIME;
    } else {
      event->button.window = GDK_WINDOW(g_object_ref(target));
      event->button.x = x;
      event->button.y = y;
      event->button.button = 1;
      event->button.time = GDK_CURRENT_TIME;
      event->button.state = type == GDK_BUTTON_RELEASE ? GDK_BUTTON1_MASK : 0;
    }
    gdk_event_set_device(event, pointer);
    gtk_main_do_event(event);
    gdk_event_free(event);
    loop_->runFor(0.05);
  }
}

std::vector<int> webProcesses() {
  std::vector<int> found;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    std::ifstream stat(entry.path() / "stat");
    std::string line;
    if (!std::getline(stat, line)) continue;
    const auto open = line.find('('), close = line.rfind(')');
    if (open == std::string::npos || close == std::string::npos || close + 2 >= line.size()) {
      continue;
    }
    const std::string name = line.substr(open + 1, close - open - 1);
    int parent = 0;
    char state = 0;
    if (std::sscanf(line.c_str() + close + 2, "%c %d", &state, &parent) != 2) continue;
    if (parent == getpid() && name.starts_with("WebKitWebProces")) {
      found.push_back(std::stoi(entry.path().filename().string()));
    }
  }
  return found;
}

}  // namespace tovani::ports
