#pragma once
// What every route of the HTTP server shares: JSON replies, errors with their status, and the
// wrapper that turns a handler's exceptions into those errors.

#include "apps/nordacam/Camera.h"
#include "apps/nordacam/OutputFolder.h"
#include "apps/nordacam/Settings.h"

#include <httplib.h>
#include <nlohmann/json.hpp>

#include <stdexcept>
#include <string>

namespace nordacam::http {

using json = nlohmann::json;

// Failures a handler reports, with their status.
struct HttpError : std::runtime_error {
    HttpError(int s, const std::string& what) : std::runtime_error(what), status(s) {}
    int status;
};

inline void reply(httplib::Response& res, const json& body, int status = 200) {
    res.status = status;
    // Messages quote what the request held, which need not be UTF-8.
    res.set_content(body.dump(-1, ' ', false, json::error_handler_t::replace), "application/json");
}

// Runs a handler, turning exceptions into JSON errors.
template <typename F> httplib::Server::Handler guarded(F f) {
    return [f](const httplib::Request& req, httplib::Response& res) {
        try {
            f(req, res);
        } catch (const HttpError& e) {
            reply(res, {{"error", e.what()}}, e.status);
        } catch (const BadFileName& e) {
            reply(res, {{"error", e.what()}}, 400);
        } catch (const NotAvailable& e) {
            reply(res, {{"error", e.what()}}, 503);
        } catch (const SettingsError& e) {
            reply(res, {{"error", e.what()}}, 400);
        } catch (const json::exception& e) {
            reply(res, {{"error", std::string("malformed JSON: ") + e.what()}}, 400);
        } catch (const std::out_of_range& e) {
            reply(res, {{"error", e.what()}}, 400);
        } catch (const std::exception& e) {
            reply(res, {{"error", e.what()}}, 409);
        }
    };
}

// The answer to a failed request that no handler explained.
inline void errorPage(httplib::Response& res) {
    if (res.body.empty())
        reply(res,
              {{"error", res.status == 404 ? std::string("not found")
                                           : "bad request (HTTP status " + std::to_string(res.status) + ")"}},
              res.status);
}

inline json parseBody(const httplib::Request& req) {
    if (req.body.empty())
        return json::object();
    try {
        return json::parse(req.body);
    } catch (const json::parse_error& e) {
        throw HttpError(400, std::string("malformed JSON: ") + e.what());
    }
}

} // namespace nordacam::http
