// Routes of the gallery: saved images with thumbnails, opened into the chain, re-analysed and
// saved as new files.
#include "apps/nordacam/Gallery.h"
#include "apps/nordacam/HttpSupport.h"
#include "apps/nordacam/Server.h"

namespace nordacam {

using namespace http;

namespace {

template <typename F> httplib::Server::Handler galleryGuarded(F f) {
    return guarded([f](const httplib::Request& req, httplib::Response& res) {
        try {
            f(req, res);
        } catch (const GalleryError& e) {
            throw HttpError(e.status(), e.what());
        }
    });
}

float number(const json& body, const char* name) {
    if (!body.contains(name) || !body[name].is_number())
        throw SettingsError(std::string("re-analysis: ") + name + " must be a number");
    return body[name].get<float>();
}

} // namespace

void WebServer::galleryRoutes() {
    m_gallery = std::make_unique<Gallery>(m_camera);
    Gallery& g = *m_gallery;
    add("GET", "/api/gallery", galleryGuarded([&g](const httplib::Request&, httplib::Response& res) {
            reply(res, {{"images", g.list()}, {"state", g.state()}});
        }));
    add("GET", R"(/api/gallery/thumb/([^/]+))",
        galleryGuarded([&g](const httplib::Request& req, httplib::Response& res) {
            res.set_content(g.thumbnail(req.matches[1]), "image/jpeg");
        }));
    add("POST", "/api/gallery/open",
        galleryGuarded([&g](const httplib::Request& req, httplib::Response& res) {
            g.open(parseBody(req).value("file", ""));
            reply(res, g.state());
        }));
    add("POST", "/api/gallery/close", galleryGuarded([&g](const httplib::Request&, httplib::Response& res) {
            g.close();
            reply(res, g.state());
        }));
    add("POST", "/api/gallery/reanalyse",
        galleryGuarded([&g](const httplib::Request& req, httplib::Response& res) {
            const json body = parseBody(req);
            if (body.contains("air") != body.contains("humidity"))
                throw HttpError(400, "give the air as both \"air\" (°C) and \"humidity\" (%)");
            std::optional<std::pair<float, float>> air;
            if (body.contains("air"))
                air.emplace(number(body, "air"), number(body, "humidity"));
            g.reanalyse(number(body, "emissivity"), number(body, "reflected"),
                        body.contains("distance") ? number(body, "distance") : 0.0f, air);
            reply(res, g.state());
        }));
    add("POST", "/api/gallery/save",
        galleryGuarded([&g](const httplib::Request& req, httplib::Response& res) {
            const json body = parseBody(req);
            reply(res, {{"file", g.saveAs(body.value("file", ""), body.value("overwrite", false))}});
        }));
}

} // namespace nordacam
