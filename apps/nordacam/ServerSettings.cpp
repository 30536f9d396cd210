// Routes of the settings: the user's settings, the key schema, the elements' commands.
#include "apps/nordacam/HttpSupport.h"
#include "apps/nordacam/Server.h"

#include "nordalib/core/datatypes/TypeName.h"
#include "nordalib/core/datatypes/VariantRegistry.h"
#include "nordalib/core/keys/KeySchema.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/radiometry/MaterialTable.h"

#include <algorithm>
#include <filesystem>

#include <typeindex>

namespace nordacam {

using namespace norda::exp;
using json = nlohmann::json;

using http::guarded;
using http::HttpError;
using http::parseBody;
using http::reply;

namespace {

template <typename T> std::shared_ptr<Variant> typedArgument(const json& a) {
    const Variant_<T> prototype{T{}};
    return parseJsonFor(prototype, a, "argument");
}

// A command argument: {"type": "<tag>", "value": ...} or a plain value of the parameter's type.
std::shared_ptr<Variant> argument(const json& a, const std::type_index& type) {
    if (a.is_object()) {
        if (!a.contains("type") || !a.contains("value") || !a["type"].is_string())
            throw HttpError(400, "a typed argument needs \"type\" and \"value\"");
        const std::string tag = a["type"].get<std::string>();
        if (!VariantRegistry::instance().knows(tag))
            throw HttpError(400, "unknown argument type " + tag);
        const std::string text = a["value"].is_string() ? a["value"].get<std::string>() : a["value"].dump();
        try {
            return VariantRegistry::instance().fromText(tag, text);
        } catch (const std::exception& e) {
            throw HttpError(400, "argument of type " + tag + ": " + e.what());
        }
    }
#define NORDA_ARG(T)                                                                                         \
    if (type == std::type_index(typeid(T)))                                                                  \
        return typedArgument<T>(a);
    NORDA_ARG(bool)
    NORDA_ARG(unsigned char)
    NORDA_ARG(unsigned short)
    NORDA_ARG(unsigned int)
    NORDA_ARG(unsigned long long)
    NORDA_ARG(int)
    NORDA_ARG(short)
    NORDA_ARG(float)
    NORDA_ARG(std::string)
#undef NORDA_ARG
    throw HttpError(400, "give this argument as {\"type\": ..., \"value\": ...}");
}

// The key schema as data, for pages that build their forms and checks from it.
json schemaJson() {
    json keys = json::array();
    for (const auto& keySpec : keySchema()) {
        json k = {{"name", keySpec.name},
                  {"type", keySpec.typeName()},
                  {"group", groupName(keySpec.group)},
                  {"writer", writerName(keySpec.writer)},
                  {"writable", keySpec.writable()},
                  {"saved", keySpec.saved()}};
        if (keySpec.defaultValue)
            k["default"] = toJson(*keySpec.defaultValue);
        if (keySpec.range)
            k["range"] = {{"low", keySpec.range->low},
                          {"high", keySpec.range->high},
                          {"lowOpen", keySpec.range->lowOpen},
                          {"what", keySpec.range->what}};
        keys.push_back(std::move(k));
    }
    json marks = json::array();
    for (const auto& m : userMarks())
        marks.push_back({{"name", m.name}, {"label", m.label}, {"kind", m.area ? "area" : "point"}});
    return {{"keys", keys}, {"userMarks", marks}, {"deltaTResults", deltaTResultNames()}};
}

// The library's materials and the user's, from materials.txt beside the settings file; a user's
// file that can not be used is an error, not silently ignored.
norda::vision::MaterialTable materials(Camera& cam) {
    auto table = norda::vision::MaterialTable::builtIn();
    if (cam.settings().path().empty())
        return table;
    const auto file = std::filesystem::path(cam.settings().path()).parent_path() / "materials.txt";
    if (!std::filesystem::exists(file))
        return table;
    try {
        return table.mergedWith(norda::vision::MaterialTable::load(file.string()));
    } catch (const norda::Exception& e) {
        throw HttpError(422, e.what());
    }
}

// {"name": material, "mark": optional user mark}: the material's emissivity and name for the image,
// or as the mark's local emissivity (its local parameters switched on); the name is saved with
// images beside the emissivity.
json applyMaterial(Camera& cam, const json& body) {
    if (!body.is_object() || !body.contains("name") || !body["name"].is_string())
        throw HttpError(400, "give the material as {\"name\": ..., \"mark\": optional}");
    const auto table = materials(cam);
    const norda::vision::Material* m = nullptr;
    try {
        m = &table.at(body["name"].get<std::string>());
    } catch (const norda::Exception& e) {
        throw HttpError(404, e.what());
    }
    json settings = {{Id::Environment::EmissivityValue, m->emissivity}, {Id::Environment::Material, m->name}};
    if (body.contains("mark")) {
        const auto& marks = userMarks();
        const auto name = body["mark"].is_string() ? body["mark"].get<std::string>() : std::string();
        auto it = std::find_if(marks.begin(), marks.end(), [&](const UserMark& u) { return u.name == name; });
        if (it == marks.end())
            throw HttpError(404, "no user mark \"" + name + "\"");
        settings = {{it->emissivity, m->emissivity}, {it->material, m->name}, {it->localParameters, true}};
    }
    cam.settings().apply(settings, "material " + m->name);
    return {{"material", m->name}, {"emissivity", m->emissivity}, {"source", m->source}};
}

} // namespace

void WebServer::settingsRoutes() {
    Camera& cam = m_camera;

    add("GET", "/api/keys",
        guarded([](const httplib::Request&, httplib::Response& res) { reply(res, schemaJson()); }));

    add("GET", "/api/materials", guarded([&cam](const httplib::Request&, httplib::Response& res) {
            json list = json::array();
            const auto table = materials(cam);
            for (const auto& m : table.materials())
                list.push_back({{"name", m.name}, {"emissivity", m.emissivity}, {"source", m.source}});
            reply(res, {{"materials", list}});
        }));
    add("POST", "/api/material", guarded([&cam](const httplib::Request& req, httplib::Response& res) {
            reply(res, applyMaterial(cam, parseBody(req)));
        }));
    add("GET", "/api/settings", guarded([&cam](const httplib::Request&, httplib::Response& res) {
            reply(res, cam.settings().userSettings());
        }));
    add("POST", "/api/settings", guarded([&cam](const httplib::Request& req, httplib::Response& res) {
            const json body = parseBody(req);
            cam.settings().apply(body, "request");
            reply(res, {{"applied", body.size()}});
        }));
    add("GET", R"(/api/settings/([A-Za-z0-9_.]+))",
        guarded([&cam](const httplib::Request& req, httplib::Response& res) {
            const std::string key = req.matches[1];
            try {
                reply(res, {{"key", key}, {"value", cam.settings().get(key)}});
            } catch (const SettingsError& e) {
                throw HttpError(404, e.what());
            }
        }));
    add("PUT", R"(/api/settings/([A-Za-z0-9_.]+))",
        guarded([&cam](const httplib::Request& req, httplib::Response& res) {
            const std::string key = req.matches[1];
            const json body = parseBody(req);
            cam.settings().set(key, body.is_object() && body.contains("value") ? body["value"] : body);
            reply(res, {{"key", key}, {"value", cam.settings().get(key)}});
        }));

    add("GET", "/api/commands", guarded([&cam](const httplib::Request&, httplib::Response& res) {
            json out = json::object();
            for (const auto& callable : cam.commands().getCallableNames()) {
                json commands = json::array();
                for (const auto& d : cam.commands().getDescriptions(callable)) {
                    json params = json::array();
                    for (const auto& p : d.getParameters())
                        params.push_back({{"index", p.getIndex()},
                                          {"name", p.getName()},
                                          {"type", typeName(p.getType())},
                                          {"description", p.getDescription()}});
                    commands.push_back({{"name", d.getName()},
                                        {"description", d.getDescription()},
                                        {"returns", typeName(d.getReturnType())},
                                        {"parameters", params}});
                }
                out[callable] = commands;
            }
            reply(res, out);
        }));
    add("POST", R"(/api/commands/([A-Za-z0-9_]+)/([A-Za-z0-9_]+))",
        guarded([&cam](const httplib::Request& req, httplib::Response& res) {
            const std::string callable = req.matches[1], command = req.matches[2];
            if (!cam.commands().hasCallable(callable))
                throw HttpError(404, "unknown callable " + callable);
            const json body = req.body.empty() ? json::array() : parseBody(req);
            if (!body.is_array())
                throw HttpError(400, "the arguments must be a JSON array");
            std::vector<std::type_index> types;
            std::vector<std::string> names;
            for (const auto& d : cam.commands().getDescriptions(callable))
                if (d.getName() == command)
                    for (const auto& p : d.getParameters()) {
                        types.push_back(p.getType());
                        names.push_back(p.getName());
                    }
            cmd::ParameterPack pack;
            for (size_t i = 0; i < body.size(); ++i) {
                auto arg = argument(body[i], i < types.size() ? types[i] : std::type_index(typeid(void)));
                // A file a command writes is named like any other file from a request: a
                // plain name inside the output folder.
                if (i < names.size() && names[i].find("Filename") != std::string::npos &&
                    arg->holds<std::string>())
                    arg = makeVariant(fileInFolder(cam.options().outputDir, arg->value<std::string>()));
                pack.add(arg);
            }
            std::shared_ptr<Variant> result;
            try {
                result = cam.commands().call(callable, command, pack);
            } catch (const norda::Exception& e) {
                throw HttpError(400, e.what());
            }
            json j = {{"callable", callable}, {"command", command}};
            if (result && result->holds<std::vector<char>>())
                j["bytes"] = result->value<std::vector<char>>().size();
            else if (result)
                j["result"] = toJson(*result);
            reply(res, j);
        }));
}

} // namespace nordacam
