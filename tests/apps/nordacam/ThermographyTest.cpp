#ifdef NORDACAM_CORE
#include "apps/nordacam/Gallery.h"
#include "apps/nordacam/Overlay.h"
#include "apps/nordacam/Server.h"

#include "nordalib/core/datatypes/MeasArea.h"
#include "nordalib/core/datatypes/MeasPoint.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/rix/RixReanalysis.h"
#include "tests/apps/nordacam/ServerSupport.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>
#include <httplib.h>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>

#include <filesystem>
#include <fstream>
#include <thread>

using namespace norda::exp;
using namespace nordacam;
using json = nlohmann::json;
using norda::vision::RixReanalysis;
using nordacam::test::call;

namespace {

CameraOptions quietCamera(const std::string& out) {
    CameraOptions o;
    o.outputDir = out;
    o.settingsFile = out + "/settings.json";
    o.realTime = false;
    o.sim.uptimeStartMs = 3600000; // settled: the board barely drifts between two shots
    o.sim.shutterPeriodS = 600.0;
    o.sim.noiseCounts = 0.0f; // two saves of the same scene then differ only by what is measured
    return o;
}

norda::vision::Rix loadRix(const std::string& path) {
    norda::vision::Rix rix;
    rix.load(path);
    return rix;
}

// Mean temperature (°C) over the interiors of the scene's objects and a patch of background.
std::vector<double> regionMeans(const cv::Mat& rad, const sim::SceneTruth& t) {
    auto mean = [&](cv::Rect r) {
        cv::Mat f;
        rad(r).convertTo(f, CV_64F);
        return cv::mean(f)[0] / 100.0 - 273.15;
    };
    const cv::Rect warm(t.warmRect);
    return {mean(cv::Rect(warm.x + 15, warm.y + 15, warm.width - 30, warm.height - 30)),
            mean(cv::Rect(cv::Point(t.hotCentre) - cv::Point(8, 8), cv::Size(16, 16))),
            mean(cv::Rect(cv::Point(t.coldCentre) - cv::Point(8, 8), cv::Size(16, 16))),
            mean(cv::Rect(300, 40, 40, 30))};
}

} // namespace

// Delta-T says its unit: kelvin between temperatures; in the humidity mode, where the results are
// relative humidities at the surface, percentage points (85 % - 62 % = 23 points), and nothing
// while a result is not measured as one.
TEST(NordacamThermography, DeltaTInTheUnitOfItsResults) {
    using Rel = quantity::Relation<MarkedFloat>;
    using Temp = quantity::Temperature<MarkedFloat>;
    std::map<std::string, std::shared_ptr<Variant>> values;
    auto set = [&](const std::string& key, auto v) { values[key] = makeVariant(v); };
    const ValueLookup lookup = [&](const std::string& key) {
        const auto it = values.find(key);
        return it == values.end() ? nullptr : it->second;
    };
    set(Id::DeltaT::Active, true);
    set(Id::DeltaT::First, std::string("MeasPoint1"));
    set(Id::DeltaT::Second, std::string("UserArea2"));
    set(Id::DeltaT::Difference, 3.5f); // the element's: kelvin
    set("MeasPoints.MeasPoint1.Visible", true);
    set("MeasAreas.UserArea2.Visible", true);
    auto results = [&](auto first, auto second) {
        set("MeasPoints.MeasPoint1.MeasPoint", MeasPoint(100, 80, first));
        MeasArea area(10, 20, 30, 40);
        area.setMeanValue(second);
        set("MeasAreas.UserArea2.MeasArea", area);
        const auto c = overlayContent(lookup, {640, 480}, "");
        return c.deltaT ? c.deltaT->text : std::string("none");
    };
    EXPECT_EQ(results(Temp(MarkedFloat(30.0f)), Temp(MarkedFloat(26.5f))), "dT +3.5 K");
    set(Id::Environment::HumidityModeActive, true);
    EXPECT_EQ(results(Rel(MarkedFloat(0.85f)), Rel(MarkedFloat(0.62f))), "dRH +23.0 %pt");
    EXPECT_EQ(results(Rel(MarkedFloat(0.85f)), Temp(MarkedFloat(26.5f))), "none");
}

// An image taken at 10 m in humid air, re-analysed for 30 m, reads what the camera measures live
// at 30 m (within 0.05 K); the saved image keeps the air it was corrected for.
TEST(NordacamThermography, ReanalysisForAnotherDistanceMatchesTheLiveMeasurement) {
    norda::test::TempDir dir;
    Camera camera(quietCamera(dir.file("out")));
    camera.settings().apply(nlohmann::json{{"Environment.AirCorrection", true},
                                           {"Environment.Distance", 10},
                                           {"Environment.Temperature", 30},
                                           {"Environment.Humidity", "80%"}},
                            "test");
    for (int i = 0; i < 60; ++i)
        camera.runCycle();
    const auto first = camera.saveImage(std::chrono::seconds(10));
    const auto truthA = *camera.snapshot().truth;
    camera.settings().set(Id::Environment::Distance, 30.0);
    for (int i = 0; i < 30; ++i) // as below: settled filter, little drift between the shots
        camera.runCycle();
    const auto b = loadRix(camera.saveImage(std::chrono::seconds(10)));
    const auto truthB = *camera.snapshot().truth;

    const auto a = loadRix(first);
    auto to = RixReanalysis::storedParameters(a);
    EXPECT_EQ(to.distanceM, 10.0);
    EXPECT_NEAR(to.humidityPercent, 80.0, 1e-3);
    EXPECT_EQ(RixReanalysis::storedParameters(b).distanceM, 30.0);
    to.distanceM = 30.0;
    const auto reanalysed = regionMeans(RixReanalysis::temperatures(a, to), truthA);
    const auto live = regionMeans(b.getRadiometricImage(), truthB);
    const auto original = regionMeans(a.getRadiometricImage(), truthA);
    EXPECT_NE(norda::vision::frameOverlayContent(norda::vision::savedFrameMetadata(b), {640, 480}, {})
                  .status.find("  d 30.0 m  Ta 30.0\xC2\xB0"
                               "C RH 80%"),
              std::string::npos);
    for (size_t i = 0; i < live.size(); ++i) {
        EXPECT_NEAR(reanalysed[i], live[i], 0.05) << "region " << i;
        std::printf("region %zu: at 10 m %.3f, re-analysed for 30 m %.3f, live at 30 m %.3f\n", i,
                    original[i], reanalysed[i], live[i]);
    }

    // The gallery: the same re-analysis in other air shown in the chain, and its copy carries the
    // new distance.
    Gallery gallery(camera);
    gallery.open(std::filesystem::path(first).filename().string());
    gallery.reanalyse(a.getEmissivityOriginal(), a.getReflectedTempOriginal().celsius(), 30.0f,
                      std::make_pair(25.0f, 60.0f));
    camera.store().flush();
    for (int i = 0; i < 3; ++i)
        camera.runCycle();
    to.airK = 298.15;
    to.humidityPercent = 60.0;
    EXPECT_LE(cv::norm(camera.snapshot().rad, RixReanalysis::temperatures(a, to), cv::NORM_INF), 1.0);
    const auto copy = loadRix(dir.file("out/" + gallery.saveAs("", false)));
    EXPECT_EQ(RixReanalysis::storedParameters(copy).distanceM, 30.0);
    EXPECT_THROW(gallery.reanalyse(0.9f, 20.0f, -1.0f), std::exception);
    EXPECT_THROW(gallery.reanalyse(0.9f, 20.0f, 30.0f, std::make_pair(30.0f, 101.0f)), std::exception);
}

// Re-analysis with the stored parameters changes no pixel by more than 0.01 K; with another
// emissivity it gives what the camera measures live with that emissivity, within 0.05 K. The
// gallery shows the re-analysed image in the chain and saves it as a new file, never over another.
TEST(NordacamThermography, ReanalysisMatchesTheLiveMeasurement) {
    norda::test::TempDir dir;
    Camera camera(quietCamera(dir.file("out")));
    for (int i = 0; i < 60; ++i)
        camera.runCycle();
    const auto first = camera.saveImage(std::chrono::seconds(10));
    const auto truthA = *camera.snapshot().truth; // the hot object moves
    camera.settings().set(Id::Environment::EmissivityValue, 0.8);
    // The temporal filter settles on the new temperatures within 30 cycles; waiting longer lets the
    // camera's drift between the two shots into the comparison.
    for (int i = 0; i < 30; ++i)
        camera.runCycle();
    const auto second = camera.saveImage(std::chrono::seconds(10));
    const auto truthB = *camera.snapshot().truth;

    const auto a = loadRix(first), b = loadRix(second);
    cv::Mat same;
    cv::absdiff(RixReanalysis::temperatures(a, RixReanalysis::storedParameters(a)), a.getRadiometricImage(),
                same);
    double worst = 0;
    cv::minMaxLoc(same, nullptr, &worst);
    EXPECT_LE(worst, 1.0) << "counts of 0.01 K";

    auto to = RixReanalysis::storedParameters(a);
    to.emissivity = 0.8;
    const auto reanalysed = regionMeans(RixReanalysis::temperatures(a, to), truthA);
    const auto live = regionMeans(b.getRadiometricImage(), truthB);
    const auto original = regionMeans(a.getRadiometricImage(), truthA);
    for (size_t i = 0; i < live.size(); ++i) {
        EXPECT_NEAR(reanalysed[i], live[i], 0.05) << "region " << i;
        std::printf("region %zu: taken %.3f, re-analysed %.3f, live %.3f\n", i, original[i], reanalysed[i],
                    live[i]);
        if (i < 3) { // the objects differ from the background: the emissivity matters there
            EXPECT_GT(std::abs(original[i] - live[i]), 0.3) << "region " << i;
        }
    }

    // The gallery: the re-analysed image is what the chain measures, and a copy is saved.
    Gallery gallery(camera);
    const auto name = std::filesystem::path(first).filename().string();
    gallery.open(name);
    gallery.reanalyse(0.8f, 20.0f);
    camera.store().flush();
    for (int i = 0; i < 3; ++i)
        camera.runCycle();
    const auto shown = camera.snapshot();
    EXPECT_EQ(shown.meta.get<std::string>(Id::Gallery::ActiveFilename), name);
    EXPECT_EQ(cv::norm(shown.rad, RixReanalysis::temperatures(a, to), cv::NORM_INF), 0.0);
    const auto before = std::filesystem::last_write_time(first);
    const auto copy = gallery.saveAs("", false);
    EXPECT_NE(copy, name);
    EXPECT_NEAR(loadRix(dir.file("out/" + copy)).getEmissivityOriginal(), 0.8f, 1e-6);
    EXPECT_TRUE(std::filesystem::exists(dir.file("out/TR" + copy.substr(2, copy.size() - 6) + ".JPG")));
    try {
        gallery.saveAs(name, false);
        ADD_FAILURE() << "saved over the original";
    } catch (const GalleryError& e) {
        EXPECT_EQ(e.status(), 409);
    }
    EXPECT_EQ(std::filesystem::last_write_time(first), before);
    gallery.close();
    camera.store().flush();
    camera.runCycle();
    EXPECT_FALSE(camera.snapshot().meta.getVariant(Id::Gallery::ActiveFilename));
}

// Settings out of range get 400 naming the setting and leave the last good value; a damaged file in
// the gallery is reported and the live chain goes on; several clients at once lose no change.
TEST(NordacamThermography, BadInputIsRefusedAndConcurrentChangesAllLand) {
    norda::test::TempDir dir;
    CameraOptions o = quietCamera(dir.file("out"));
    o.streams = true;
    Camera camera(o);
    WebServer server(camera);
    for (int i = 0; i < 10; ++i)
        camera.runCycle();

    const struct {
        json body;
        const char* setting;
    } bad[] = {{{{"Environment.EmissivityValue", 0}}, "Environment.EmissivityValue"},
               {{{"Environment.Humidity", "1.2,0"}}, "Environment.Humidity"},
               {{{"MeasPoints.MeasPoint1.Position", "700,20"}}, "MeasPoints.MeasPoint1.Position"},
               {{{"MeasAreas.UserArea1.Rect", "600,400,100,100"}}, "MeasAreas.UserArea1.Rect"},
               {{{"MeasPoints.MeasPoint2.Emissivity", 1.2}}, "MeasPoints.MeasPoint2.Emissivity"},
               {{{"DeltaT.First", "Nowhere"}}, "DeltaT.First"}};
    for (const auto& b : bad) {
        const auto r = call(server, "POST", "/api/settings", b.body);
        EXPECT_EQ(r.status, 400) << b.setting;
        EXPECT_NE(r.body.value("error", "").find(b.setting), std::string::npos) << r.body.dump();
    }
    EXPECT_FLOAT_EQ(camera.store().getValue<float>(Id::Environment::EmissivityValue), 0.95f);

    std::ofstream(dir.file("out/IR000077.RIX")) << "not an image";
    const auto list = call(server, "GET", "/api/gallery").body["images"];
    ASSERT_EQ(list.size(), 1u);
    EXPECT_NE(list[0].value("error", "").find("IR000077.RIX can not be read"), std::string::npos);
    const auto open = call(server, "POST", "/api/gallery/open", {{"file", "IR000077.RIX"}});
    EXPECT_EQ(open.status, 422);
    EXPECT_EQ(call(server, "GET", "/api/gallery/thumb/IR000077.RIX").status, 422);
    const auto cycles = camera.snapshot().cycle;
    camera.runCycle();
    EXPECT_GT(camera.snapshot().cycle, cycles);
    EXPECT_FALSE(camera.snapshot().rad.empty());

    // Four clients, each moving its own point twenty times and switching the object parameters.
    std::vector<std::thread> clients;
    for (int c = 0; c < 4; ++c)
        clients.emplace_back([&, c] {
            for (int i = 0; i < 20; ++i) {
                const std::string key = "MeasPoints.MeasPoint" + std::to_string(c + 1);
                call(server, "POST", "/api/settings",
                     {{key + ".Position", std::to_string(10 * c + i) + "," + std::to_string(i)},
                      {key + ".Visible", true}});
                call(server, "PUT", "/api/settings/Environment.EmissivityValue", {{"value", 0.5 + 0.1 * c}});
            }
        });
    for (auto& t : clients)
        t.join();
    for (int c = 0; c < 4; ++c)
        EXPECT_EQ(camera.store().getValue<cv::Point_<int>>("MeasPoints.MeasPoint" + std::to_string(c + 1) +
                                                           ".Position"),
                  cv::Point_<int>(10 * c + 19, 19));
    const float e = camera.store().getValue<float>(Id::Environment::EmissivityValue);
    EXPECT_TRUE(e == 0.5f || e == 0.6f || e == 0.7f || e == 0.8f) << e;
    const auto thermo = call(server, "GET", "/api/thermography").body;
    EXPECT_TRUE(thermo["points"][3]["visible"].get<bool>());
    // Delta-T between two points in the humidity mode: in percentage points of relative humidity.
    call(server, "POST", "/api/settings",
         {{"DeltaT.Active", true},
          {"DeltaT.First", "MeasPoint1"},
          {"DeltaT.Second", "MeasPoint2"},
          {"Environment.HumidityModeActive", true}});
    camera.runCycle();
    const auto delta = call(server, "GET", "/api/thermography").body["deltaT"];
    const auto points = call(server, "GET", "/api/thermography").body["points"];
    EXPECT_EQ(delta["unit"], "%pt");
    EXPECT_NEAR(delta["difference"].get<double>(),
                points[0]["value"]["percent"].get<double>() - points[1]["value"]["percent"].get<double>(),
                1e-3);
}
#endif
