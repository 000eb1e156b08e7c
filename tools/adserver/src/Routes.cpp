#include "Routes.hpp"

#include <httplib.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>
#include <regex>

#include "ConnectionFaults.hpp"
#include "Documents.hpp"
#include "EndCards.hpp"
#include "Fixtures.hpp"
#include "StoreFile.hpp"

namespace tovani::adserver {
namespace {

using nlohmann::json;

struct Answer {
  int status = 200;
  std::string contentType = "text/plain";
  std::string body;
};

Answer notFound() {
  return {404, "text/plain", "not found\n"};
}

const std::regex kAdRequest{R"(/cgi-bin/conad_tovani\.fcgi/([^/]+)/([^/]*))"};
const std::regex kVideo{R"(.*/video/([^/]+))"};
const std::regex kImage{R"(.*/(?:button|images)/([^/]+\.png))"};
const std::regex kEndCard{R"(/endcard/ios/([^/]+))"};

std::string contentTypeOf(std::string_view name) {
  if (name.ends_with(".mp4")) return "video/mp4";
  if (name.ends_with(".png")) return "image/png";
  return "application/octet-stream";
}

Answer fixture(const ServerState& state, const std::string& name) {
  auto bytes = readFixture(state.fixturesDir, name);
  if (!bytes) return notFound();
  return {200, contentTypeOf(name), std::move(*bytes)};
}

// Which kind of answer a request gets, decided by its path alone: the SDK's hosts all
// reach the same ports, so the Host header tells nothing.
std::pair<Route, Answer> answer(const httplib::Request& req, ServerState& state) {
  std::smatch m;
  const std::string& path = req.path;
  if (std::regex_match(path, m, kAdRequest)) {
    const std::string kind = req.get_param_value("xml");
    if (kind == "json") {
      const std::string uuid = state.ids.answerFor(m[2].str());
      std::string body = state.scenario.adlistDocument ? *state.scenario.adlistDocument
                                                       : renderAdList(state.scenario.adverts, uuid);
      return {Route::adlist, {200, "application/json", std::move(body)}};
    }
    if (kind == "vast") {
      const std::size_t n = state.vastAnswers.fetch_add(1);
      const auto& ads = state.scenario.vast;
      const std::size_t first = state.scenario.rotate && !ads.empty() ? n % ads.size() : 0;
      std::string body =
          state.scenario.vastDocument ? *state.scenario.vastDocument : renderVast(ads, first);
      return {Route::vast, {200, "application/xml", std::move(body)}};
    }
    return {Route::other, {400, "text/plain", "xml must be json or vast\n"}};
  }
  if (path.ends_with("/tnad_005.data")) {
    return {Route::store,
            {200, "application/octet-stream", buildStoreFile(state.stateDir, storeSchemaText())}};
  }
  if (std::regex_match(path, m, kVideo)) return {Route::video, fixture(state, m[1].str())};
  if (std::regex_match(path, m, kImage)) return {Route::image, fixture(state, m[1].str())};
  if (std::regex_match(path, m, kEndCard)) {
    auto page = state.scenario.endcardDocument
                    ? std::optional<std::string>(*state.scenario.endcardDocument)
                    : renderEndCardPage(m[1].str(), req.body, state.hosts);
    if (!page) return {Route::endcard, notFound()};
    return {Route::endcard, {200, "text/html; charset=utf-8", std::move(*page)}};
  }
  if (path == "/") {
    return {Route::endcard, {200, "text/html; charset=utf-8", renderHomePage(state.hosts)}};
  }
  if (path.starts_with("/track/")) return {Route::track, {200, "text/plain", ""}};
  return {Route::other, notFound()};
}

std::string malformedBody(Route route, const std::string& body) {
  switch (route) {
    case Route::adlist:
      return malformedJson(body);
    case Route::vast:
      return malformedXml(body);
    case Route::endcard:
      return "<html><body><a href=\"tovaniksdkcall://";
    case Route::store: {
      // Large enough to pass a "file is not empty" check, but no database.
      std::string text;
      while (text.size() < 4096) text += "this is not an SQLite database\n";
      return text;
    }
    default:
      return "\x01not what was asked for\n";
  }
}

// Spoils the answer as the route's fault switch says; false when the server is stopping.
bool applyFault(Route route, Answer& a, const httplib::Request& req, httplib::Response& res,
                ServerState& state) {
  const auto fault = state.faults.take(route);
  if (!fault) {
    res.status = a.status;
    res.set_content(a.body, a.contentType);
    return true;
  }
  if (fault->delaySeconds > 0 && !state.pause(fault->delaySeconds)) return false;
  if (fault->stallSeconds > 0 && !state.pause(fault->stallSeconds)) return false;
  if (fault->resetConnection && resetConnection(req)) return true;
  if (fault->redirect) {
    res.status = 302;
    res.set_header("Location", *fault->redirect);
    return true;
  }
  if (fault->file) {
    auto bytes = readWholeFile(*fault->file);
    a = bytes ? Answer{200, a.contentType, std::move(*bytes)}
              : Answer{500, "text/plain", "cannot read " + *fault->file + "\n"};
  }
  if (fault->status) {
    a.status = *fault->status;
    // An error status with the real body would still be used by a client that ignores
    // the status, which is not the failure the switch asks for.
    if (a.status >= 300) {
      a.contentType = "text/html";
      a.body = "<html><body><h1>" + std::to_string(a.status) + "</h1></body></html>\n";
    }
  }
  if (fault->empty) {
    a.body.clear();
  } else if (fault->malformed) {
    a.body = malformedBody(route, a.body);
  }
  res.status = a.status;
  if (fault->oversizeBytes > 0) {
    setOversizeBody(res, fault->oversizeBytes, a.contentType);
    return true;
  }
  if (fault->truncateKeep <= 0 || a.body.size() < 2) {
    res.set_content(a.body, a.contentType);
    return true;
  }
  // Announce the whole length, send the share, then fail the provider: the server hangs
  // up with the rest still owed, which the client sees as a cut transfer.
  auto body = std::make_shared<std::string>(std::move(a.body));
  const std::size_t keep = std::clamp<std::size_t>(
      static_cast<std::size_t>(std::floor(static_cast<double>(body->size()) * fault->truncateKeep)),
      1, body->size() - 1);
  res.set_content_provider(body->size(), a.contentType,
                           [body, keep](std::size_t offset, std::size_t, httplib::DataSink& sink) {
                             if (offset >= keep) return false;
                             return sink.write(body->data() + offset, keep - offset);
                           });
  return true;
}

// A client sent here by a proxy setting asks in the absolute form ("GET http://host/path"),
// which names the same resource as its path alone; the Host header still tells the host.
std::string originForm(const std::string& target) {
  const auto authority = target.find("://");
  if (authority == std::string::npos || target.front() == '/') return target;
  const auto path = target.find_first_of("/?", authority + 3);
  if (path == std::string::npos) return "/";
  return target[path] == '/' ? target.substr(path) : "/" + target.substr(path);
}

void serve(const httplib::Request& original, httplib::Response& res, const std::string& scheme,
           ServerState& state) {
  std::optional<httplib::Request> proxied;
  if (!original.path.empty() && original.path.front() != '/') {
    proxied = original;
    proxied->path = originForm(original.path);
    proxied->target = originForm(original.target);
  }
  const httplib::Request& req = proxied ? *proxied : original;
  LoggedRequest entry;
  entry.scheme = scheme;
  entry.method = req.method;
  entry.host = req.get_header_value("Host");
  const auto question = req.target.find('?');
  entry.path = req.target.substr(0, question);
  entry.query = question == std::string::npos ? "" : req.target.substr(question + 1);
  entry.body = req.body;

  Route route = Route::other;
  Answer a;
  try {
    auto [r, produced] = answer(req, state);
    route = r;
    a = std::move(produced);
  } catch (const std::exception& e) {
    a = {500, "text/plain", std::string("server error: ") + e.what() + "\n"};
  }
  entry.route = std::string(routeName(route));
  state.log.record(entry);
  if (!applyFault(route, a, req, res, state)) {
    res.status = 503;
    res.set_content("stopping\n", "text/plain");
  }
  state.log.setStatus(entry.id, res.status);
  if (state.onRequest) {
    entry.status = res.status;
    state.onRequest(entry);
  }
}

void sendJson(httplib::Response& res, const json& value, int status = 200) {
  res.status = status;
  res.set_content(value.dump(2, ' ', false, json::error_handler_t::replace) + "\n",
                  "application/json");
}

}  // namespace

void installRoutes(httplib::Server& server, const std::string& scheme, ServerState& state) {
  server.Get("/__log", [&state](const httplib::Request&, httplib::Response& res) {
    sendJson(res, state.log.toJson());
  });
  server.Post("/__log/clear", [&state](const httplib::Request&, httplib::Response& res) {
    state.log.clear();
    sendJson(res, {{"cleared", true}});
  });
  server.Get("/__faults", [&state](const httplib::Request&, httplib::Response& res) {
    sendJson(res, state.faults.snapshot());
  });
  server.Post("/__faults", [&state](const httplib::Request& req, httplib::Response& res) {
    const json changes = json::parse(req.body, nullptr, false);
    try {
      if (changes.is_discarded()) throw std::invalid_argument("the body is not JSON");
      state.faults.apply(changes);
    } catch (const std::invalid_argument& e) {
      sendJson(res, {{"error", e.what()}}, 400);
      return;
    }
    sendJson(res, state.faults.snapshot());
  });
  server.Get("/__scenario", [&state](const httplib::Request&, httplib::Response& res) {
    json out = scenarioToJson(state.scenario);
    out["active_faults"] = state.faults.snapshot();
    if (state.describeServer) out["server"] = state.describeServer();
    sendJson(res, out);
  });
  const auto handler = [&state, scheme](const httplib::Request& req, httplib::Response& res) {
    serve(req, res, scheme, state);
  };
  server.Get(".*", handler);
  server.Post(".*", handler);
}

}  // namespace tovani::adserver
