// nordacam: the host program of nordalib -- a simulated thermal camera running the library's
// whole live chain, a live viewer in the browser, and tools for saved images and calibration.
#include "apps/nordacam/Analyze.h"
#include "apps/nordacam/CalibTools.h"
#include "apps/nordacam/Demo.h"
#include "apps/nordacam/Report.h"
#include "apps/nordacam/RixTools.h"
#include "apps/nordacam/Server.h"

#include "nordalib/core/logging/Logger.h"
#include "nordalib/core/utils/VectorDispatch.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <optional>

using namespace nordacam;

namespace {

// Options every command that runs the chain shares.
struct Common {
    std::string settings;
    std::vector<std::string> set;
    std::string calib;
    std::string out = "out";
    double fps = 30.0;
    double shutter = 10.0;
    bool fast = false;
    bool quiet = false;
    float hot = 85.0f;
    bool noVisual = false;
    bool hiresStills = false;
};

void addCommon(CLI::App* app, Common& c, bool withOut = true) {
    app->add_option("--settings", c.settings,
                    "JSON settings file (read at start, written by SaveUserSettings)");
    app->add_option("--set", c.set, "KEY=VALUE: set a parameter after the settings file (repeatable)");
    app->add_option("--calib", c.calib, "calibration folder")->check(CLI::ExistingDirectory);
    if (withOut)
        app->add_option("--out", c.out, "output folder for images and recordings")->capture_default_str();
    app->add_option("--fps", c.fps, "simulated frame rate")
        ->capture_default_str()
        ->check(CLI::Range(1.0, 120.0));
    app->add_option("--shutter-period", c.shutter, "seconds between shutter events")
        ->capture_default_str()
        ->check(CLI::Range(1.0, 3600.0));
    app->add_flag("--fast", c.fast, "do not pace the simulator in real time");
    app->add_flag("--quiet", c.quiet, "no live status line");
    app->add_option("--hot", c.hot,
                    "temperature of the simulated hot object (°C; above 100 the range switches up)")
        ->capture_default_str()
        ->check(CLI::Range(-40.0, 340.0));
    app->add_flag("--no-visual", c.noVisual, "run without the simulated visual camera");
    app->add_flag("--hires-stills", c.hiresStills,
                  "save 2592 x 1944 visual stills with every image (default 1024 x 768)");
}

CameraOptions cameraOptions(const Common& c) {
    CameraOptions o;
    o.calibrationDir = c.calib;
    o.outputDir = c.out;
    o.settingsFile = c.settings.empty() ? c.out + "/settings.json" : c.settings;
    o.assignments = c.set;
    o.sim.fps = c.fps;
    o.sim.shutterPeriodS = c.shutter;
    o.sim.hotC = c.hot;
    o.realTime = !c.fast;
    o.visual = !c.noVisual;
    o.highResolutionStills = c.hiresStills;
    return o;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{
        "nordacam: a thermal camera host for nordalib (simulated detector, live chain, browser viewer)"};
    app.require_subcommand(1);
    std::string logLevel;
    app.add_option("--log-level", logLevel, "console log level: trace, debug, info, warning, error, off")
        ->check(CLI::IsMember({"trace", "debug", "info", "warning", "error", "critical", "off"}));

    Common demoC, runC, serveC;
    uint64_t demoFrames = 450, runFrames = 300;
    auto* demo = app.add_subcommand("demo", "run the simulated camera through the whole live chain");
    addCommon(demo, demoC);
    demo->add_option("--frames", demoFrames, "frames to run")
        ->capture_default_str()
        ->check(CLI::Range(1, 1000000));

    std::string input;
    auto* run = app.add_subcommand("run", "run the live chain on a raw recording");
    addCommon(run, runC);
    run->add_option("--input", input, "raw recording (PXM)")->required()->check(CLI::ExistingFile);
    run->add_option("--frames", runFrames, "frames to run")
        ->capture_default_str()
        ->check(CLI::Range(1, 1000000));
    int runRtsp = -1;
    run->add_option("--rtsp-port", runRtsp,
                    "stream H.264 over RTSP on this port of 127.0.0.1 (0: any free port)")
        ->check(CLI::Range(0, 65535));

    Common simC;
    std::string simOut;
    uint64_t simFrames = 300;
    auto* simulate = app.add_subcommand("simulate", "write a raw recording of the simulated camera");
    addCommon(simulate, simC, false);
    simulate->add_option("--out", simOut, "recording to write (PXM)")->required();
    simulate->add_option("--frames", simFrames, "frames to write")
        ->capture_default_str()
        ->check(CLI::Range(1, 100000));

    auto* rix = app.add_subcommand("rix", "inspect and export saved images");
    rix->require_subcommand(1);
    std::string rixFile, exportFile, csv, png, tiff;
    auto* info = rix->add_subcommand("info", "show what a saved image holds");
    info->add_option("file", rixFile, "saved image (.RIX)")->required();
    auto* exp = rix->add_subcommand("export", "export the temperatures of a saved image");
    exp->add_option("file", exportFile, "saved image (.RIX)")->required();
    auto* csvOpt = exp->add_option("--csv", csv, "temperatures in °C as CSV");
    auto* pngOpt = exp->add_option("--png", png, "radiometric image as 16-bit PNG (0.01 K per count)");
    auto* tiffOpt = exp->add_option("--tiff", tiff, "radiometric image as 16-bit TIFF (0.01 K per count)");
    ReanalysisRequest re;
    exp->add_option("--emissivity", re.emissivity, "re-analyse for this emissivity (0, 1]");
    exp->add_option("--reflected", re.reflectedC, "re-analyse for this reflected temperature (°C)");
    exp->add_option("--distance", re.distanceM,
                    "re-analyse for this object distance (m, (0, 10000]; air on)");
    exp->add_option("--air", re.airC, "re-analyse for this air temperature (°C, -50 to 60)");
    exp->add_option("--humidity", re.humidityPercent, "re-analyse for this relative humidity (%, 0-100)");
    csvOpt->excludes(pngOpt)->excludes(tiffOpt);
    pngOpt->excludes(tiffOpt);

    std::string noteFile, noteText;
    auto* note =
        rix->add_subcommand("note", "store the thermographer's note in a saved image (empty: remove it)");
    note->add_option("file", noteFile, "saved image (.RIX)")->required();
    note->add_option("text", noteText, "the note (lines separated by newlines)")->required();

    ReportOptions ro;
    std::optional<float> roAlarm;
    auto* reportCmd = app.add_subcommand("report", "an inspection report of saved images (PDF or HTML)");
    reportCmd->add_option("images", ro.images, "saved images (.RIX)")->required();
    reportCmd->add_option("--out", ro.out, "FILE.pdf or FILE.html")->required();
    reportCmd->add_option(
        "--alarm", roAlarm,
        "alarm threshold (°C) for the summary (default: each image's upper alarm when it was on)");
    reportCmd->add_option("--title", ro.title, "title of the report")->capture_default_str();

    auto* calib = app.add_subcommand("calib", "make calibration files");
    calib->require_subcommand(1);
    DistortionParameters dp;
    std::string distOut = "distort.pxm";
    auto* dist = calib->add_subcommand("distortion",
                                       "write distort.pxm from a camera matrix and distortion coefficients");
    dist->add_option("--out", distOut, "file to write")->capture_default_str();
    dist->add_option("--width", dp.width, "image width")->capture_default_str()->check(CLI::Range(2, 16384));
    dist->add_option("--height", dp.height, "image height")
        ->capture_default_str()
        ->check(CLI::Range(2, 16384));
    dist->add_option("--fx", dp.fx, "focal length x (pixels)")->capture_default_str();
    dist->add_option("--fy", dp.fy, "focal length y (pixels)")->capture_default_str();
    dist->add_option("--cx", dp.cx, "principal point x")->capture_default_str();
    dist->add_option("--cy", dp.cy, "principal point y")->capture_default_str();
    dist->add_option("--k1", dp.k1, "radial coefficient k1")->capture_default_str();
    dist->add_option("--k2", dp.k2, "radial coefficient k2")->capture_default_str();
    dist->add_option("--k3", dp.k3, "radial coefficient k3")->capture_default_str();
    dist->add_option("--p1", dp.p1, "tangential coefficient p1")->capture_default_str();
    dist->add_option("--p2", dp.p2, "tangential coefficient p2")->capture_default_str();

    std::string regOut = "registration.json";
    auto* reg = calib->add_subcommand(
        "registration", "write registration.json: the simulated rig's lenses, baseline and laser");
    reg->add_option("--out", regOut, "file to write")->capture_default_str();

    std::string badOut = "badpixel.pxm";
    auto* bad =
        calib->add_subcommand("badpixel", "write badpixel.pxm: the simulated detector's factory bad pixels");
    bad->add_option("--out", badOut, "file to write")->capture_default_str();

    std::string fitViews, fitOut, fitLenses;
    auto* radFit = calib->add_subcommand("radiometry-fit",
                                         "fit radiometry.json to blackbody views (a folder with views.json)");
    auto* badFit = calib->add_subcommand("badpixel-fit",
                                         "find badpixel.pxm in flat-field views (a folder with views.json)");
    auto* gainFit = calib->add_subcommand(
        "gain-fit", "fit the pixels' gains, gain.pxm, to flat-field views (a folder with views.json)");
    auto* distFit = calib->add_subcommand(
        "distortion-fit", "fit a lens's distort.pxm to grid target views (a folder with views.json)");
    auto* regFit = calib->add_subcommand(
        "registration-fit",
        "fit registration.json to poses both cameras saw and laser spots (a folder with views.json)");
    for (auto* fit : {radFit, badFit, gainFit, distFit, regFit}) {
        fit->add_option("--views", fitViews, "folder of the views (views.json and PXM files)")
            ->required()
            ->check(CLI::ExistingDirectory);
        fit->add_option("--out", fitOut, "file to write")->required();
    }
    radFit->add_option("--lenses", fitLenses, "radiometry.json whose lens table to carry over")
        ->check(CLI::ExistingFile);
    double fitResidualLimit = 0;
    radFit->add_option("--residual-limit", fitResidualLimit,
                       "refuse a view further off the fitted curve than this (K) and its noise allow");

    std::string viewsKind, viewsOut, checkRadiometry;
    unsigned viewsSeed = 42;
    auto* views = calib->add_subcommand(
        "views",
        "render the target views a factory captures from the physical simulator (a folder for the fits)");
    views->add_option("--kind", viewsKind, "radiometry, badpixel, distortion or registration")
        ->required()
        ->check(CLI::IsMember({"radiometry", "badpixel", "distortion", "registration"}));
    views->add_option("--out", viewsOut, "folder to write views.json and the PXM frames to")->required();
    auto* check = calib->add_subcommand(
        "check", "convert fresh blackbody views of the physical simulator with a fitted radiometry.json");
    check->add_option("--radiometry", checkRadiometry, "fitted radiometry.json")
        ->required()
        ->check(CLI::ExistingFile);
    std::string checkDistortion;
    check
        ->add_option("--distortion", checkDistortion,
                     "fitted distort.pxm to compare with the simulator's lens")
        ->check(CLI::ExistingFile);
    std::string checkRegistration;
    check
        ->add_option("--registration", checkRegistration,
                     "fitted registration.json to compare with the simulator's rig (needs --distortion)")
        ->check(CLI::ExistingFile);
    std::string checkGain;
    check->add_option("--gain", checkGain, "fitted gain.pxm to flatten uniform hot blackbodies with")
        ->check(CLI::ExistingFile);
    std::vector<double> viewsBoards;
    for (auto* c : {views, check}) {
        c->add_option("--seed", viewsSeed, "the simulated camera (its pixel pattern)")->capture_default_str();
        c->add_option("--boards", viewsBoards, "board temperatures of the blackbody views (°C)")
            ->delimiter(',')
            ->check(CLI::Range(-30.0, 90.0));
    }

    ServeOptions so;
    double serveSeconds = 0;
    std::string serveInput;
    auto* srv = app.add_subcommand("serve", "run the live chain behind an HTTP server with a live viewer");
    addCommon(srv, serveC);
    srv->add_option("--port", so.port, "TCP port (0: any free port)")
        ->capture_default_str()
        ->check(CLI::Range(0, 65535));
    srv->add_option("--bind", so.bind, "address to listen on")->capture_default_str();
    srv->add_option("--rtsp-port", so.rtspPort,
                    "stream H.264 over RTSP on this port (0: any free port): /thermal, /visual, /fusion")
        ->check(CLI::Range(0, 65535));
    srv->add_option("--input", serveInput, "raw recording to play instead of the simulator")
        ->check(CLI::ExistingFile);
    srv->add_option("--seconds", serveSeconds, "stop after this many seconds (0: run until interrupted)")
        ->capture_default_str();

    AnalyzeOptions ao;
    std::vector<std::string> aoPoints, aoAreas;
    std::string aoCalib;
    auto* analyzeCmd = app.add_subcommand(
        "analyze", "temperatures of spots and areas over time: NAME.csv and a plot NAME.png");
    analyzeCmd->add_option("inputs", ao.inputs, "a raw recording (.pxm) or saved images (.RIX)")->required();
    analyzeCmd->add_option("--point", aoPoints, "X,Y: a spot to follow (repeatable)");
    analyzeCmd->add_option("--area", aoAreas,
                           "X,Y,W,H: an area to follow, its mean and maximum (repeatable)");
    analyzeCmd->add_option("--out", ao.out, "NAME of the files to write (NAME.csv, NAME.png)")->required();
    analyzeCmd->add_option("--calib", aoCalib, "calibration folder (for a raw recording)")
        ->check(CLI::ExistingDirectory);

    auto* targets = app.add_subcommand("targets", "show the instruction set each vector kernel runs on here");

    if (argc > 1 && argv[1][0] != '-') {
        bool known = false;
        for (const auto* sub : app.get_subcommands({}))
            known = known || sub->get_name() == argv[1];
        if (!known) {
            std::cerr << "nordacam: error: unknown command \"" << argv[1]
                      << "\" (commands: demo, run, simulate, rix, analyze, report, calib, serve, targets; "
                         "see --help)"
                      << std::endl;
            return 2;
        }
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        std::cerr << "nordacam: error: " << e.what() << " (see --help)" << std::endl;
        return 2;
    }
    // The live status line is the program's voice; element records below warnings stay quiet
    // unless asked for.
    if (logLevel.empty() && !std::getenv("NORDA_LOG_LEVEL"))
        logLevel = "warning";
    if (!logLevel.empty()) {
        static const char* names[] = {"trace", "debug", "info", "warning", "error", "critical", "off"};
        for (int i = 0; i < 7; ++i)
            if (logLevel == names[i])
                norda::logging::Logger::setConsoleLevel(static_cast<norda::logging::LogLevel>(i));
    }

    try {
        if (*demo) {
            RunOptions o;
            o.camera = cameraOptions(demoC);
            o.frames = demoFrames;
            o.status = !demoC.quiet;
            o.truthFigures = true;
            return runLive(o, std::cout);
        }
        if (*run) {
            RunOptions o;
            o.camera = cameraOptions(runC);
            o.camera.inputFile = input;
            o.frames = runFrames;
            o.record = false;
            o.status = !runC.quiet;
            o.rtspPort = runRtsp;
            return runLive(o, std::cout);
        }
        if (*simulate) {
            auto o = cameraOptions(simC);
            o.settingsFile = simC.settings;
            return simulateRecording(o, simOut, simFrames, std::cout);
        }
        if (*info)
            return rixInfo(rixFile, std::cout);
        if (*exp) {
            if (!csv.empty())
                return rixExport(exportFile, ExportFormat::Csv, csv, std::cout, re);
            if (!png.empty())
                return rixExport(exportFile, ExportFormat::Png, png, std::cout, re);
            if (!tiff.empty())
                return rixExport(exportFile, ExportFormat::Tiff, tiff, std::cout, re);
            std::cerr << "nordacam: error: rix export needs one of --csv, --png, --tiff (see --help)"
                      << std::endl;
            return 2;
        }
        if (*note)
            return rixNote(noteFile, noteText, std::cout);
        if (*reportCmd) {
            ro.alarmC = roAlarm;
            return report(ro, std::cout);
        }
        if (*analyzeCmd) {
            for (const auto& p : aoPoints)
                ao.points.push_back(parsePoint(p));
            for (const auto& a : aoAreas)
                ao.areas.push_back(parseArea(a));
            ao.calibrationDir = aoCalib;
            return analyze(ao, std::cout);
        }
        if (*dist)
            return calibDistortion(dp, distOut, std::cout);
        if (*bad)
            return calibBadPixel(badOut, std::cout);
        if (*radFit)
            return calibFitRadiometry(fitViews, fitOut, fitLenses, std::cout, fitResidualLimit);
        if (*badFit)
            return calibFitBadPixel(fitViews, fitOut, std::cout);
        if (*gainFit)
            return calibFitGain(fitViews, fitOut, std::cout);
        if (*distFit)
            return calibFitDistortion(fitViews, fitOut, std::cout);
        if (*regFit)
            return calibFitRegistration(fitViews, fitOut, std::cout);
        if (*reg)
            return calibRegistration(regOut, std::cout);
        if (*views)
            return calibViews(viewsKind, viewsOut, viewsSeed, viewsBoards, std::cout);
        if (*check)
            return calibCheck(checkRadiometry, checkDistortion, viewsSeed, viewsBoards, std::cout,
                              checkRegistration, checkGain);
        if (*targets) {
            using norda::utils::VectorDispatch;
            std::string available;
            for (const std::string& t : VectorDispatch::availableTargets())
                available += (available.empty() ? "" : ", ") + t;
            std::cout << "vector targets of this processor: " << available << "\n";
            for (const auto& k : VectorDispatch::kernelTargets())
                std::cout << "  " << k.kernel << std::string(24 - std::min<size_t>(k.kernel.size(), 23), ' ')
                          << k.target << "\n";
            return 0;
        }
        if (*srv) {
            so.camera = cameraOptions(serveC);
            so.camera.inputFile = serveInput;
            so.seconds = serveSeconds;
            return serve(so, std::cout);
        }
    } catch (const std::exception& e) {
        std::string what = e.what();
        for (auto& c : what)
            if (c == '\n')
                c = ' ';
        std::cerr << "nordacam: error: " << what << std::endl;
        return 1;
    }
    return 2;
}
