// The emission marker element on its own: a drawn label, temperature frames made from a radiometric
// signal written out here (Planck curve, emissivities, reflection, protective glass), and the
// emissivity the physics gives, against what the element reports.
#include "nordalib/vision/streaming/EmissionMarkerElement.h"

#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/core/keys/Keys.h"
#include "tests/vision/TestSupport.h"

#include <gtest/gtest.h>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>

using namespace norda::exp;
using namespace norda::exp::streaming;
using Rel = quantity::Relation<MarkedFloat>;

namespace {

// A Planck curve of a long-wave camera: S(T) = R1 / (R2 (exp(B / T) - F)) - O.
constexpr double R1 = 15000, R2 = 1, B = 1430, F = 1, O = 0;
double S(double k) {
    return R1 / (R2 * (std::exp(B / k) - F)) - O;
}
double T(double s) {
    return B / std::log(R1 / (R2 * (s + O)) + F);
}

// What the scene is, and what the camera was told about it.
struct World {
    double surfaceK = 333.15, surfaceEps = 0.60, labelEps = 0.95, reflectedK = 293.15;
    double tau = 1.0, glassEps = 0.0; // protective glass (at the reflected temperature)
};
struct Settings {
    double eps = 1.0, reflectedK = 293.15;
};

// The temperature the camera shows for a surface: the signal through the glass, inverted with the
// settings.
uint16_t shown(const World& w, const Settings& s, double trueK, double eps) {
    const double window =
        w.tau * (eps * S(trueK) + (1 - eps) * S(w.reflectedK)) + w.glassEps * S(w.reflectedK);
    const double scene = (window - w.glassEps * S(s.reflectedK)) / w.tau;
    return uint16_t(std::lround(T((scene - (1 - s.eps) * S(s.reflectedK)) / s.eps) * 100));
}

struct MarkerFixture {
    explicit MarkerFixture(cv::Size ir) : irSize(ir) {
        rig.save(dir.file("registration.json"));
        store.setValue(Id::Registration::CalibrationFile, dir.file("registration.json"), false);
        // The label's infrared box, from its visual corners at its distance (focal length x size /
        // side) through OpenCV's lens model.
        const cv::Size vga(640, 480);
        const auto v = rig.visualAt(vga), i = rig.infraredAt(ir);
        const double distance = v.fx * 0.05 / 20;
        std::vector<cv::Point2d> corners{{299.5, 199.5}, {319.5, 199.5}, {299.5, 219.5}, {319.5, 219.5}}, n;
        cv::undistortPoints(corners, n, cv::Matx33d(v.fx, 0, v.cx, 0, v.fy, v.cy, 0, 0, 1),
                            std::vector<double>{v.k1, v.k2, v.p1, v.p2, v.k3});
        std::vector<cv::Point3d> points;
        for (const auto& p : n) {
            const cv::Vec3d d = rig.rotation * cv::Vec3d(p.x, p.y, 1);
            const cv::Vec3d q = rig.translation + (distance - rig.translation[2]) / d[2] * d;
            points.emplace_back(q[0], q[1], q[2]);
        }
        std::vector<cv::Point2d> projected;
        cv::projectPoints(points, cv::Vec3d(), cv::Vec3d(),
                          cv::Matx33d(i.fx, 0, i.cx, 0, i.fy, i.cy, 0, 0, 1), cv::noArray(), projected);
        label = cv::boundingRect(std::vector<cv::Point2f>(projected.begin(), projected.end()));
        store.setValue(Id::EmissionMarker::SearchPoint, cv::Point_<int>((label.tl() + label.br()) / 2),
                       false);
    }
    // The status and emissivity for one pair of frames; `edit` changes the temperature frame.
    std::pair<std::string, double> run(const World& w, const Settings& s, bool covered = false,
                                       std::function<void(cv::Mat&)> edit = {}) {
        cv::Mat rgb(480, 640, CV_8UC3, cv::Scalar(120, 120, 120));
        cv::rectangle(rgb, cv::Rect(300, 200, 20, 20), cv::Scalar(230, 25, 160), -1);
        if (covered) // a cable across
            cv::rectangle(rgb, cv::Rect(295, 205, 30, 6), cv::Scalar(40, 40, 40), -1);
        cv::Mat rad(irSize, CV_16UC1, cv::Scalar(shown(w, s, w.surfaceK, w.surfaceEps)));
        // The label, one pixel wider than it maps: its edges blur in the infrared image.
        rad(label + cv::Size(2, 2) - cv::Point(1, 1)) = shown(w, s, w.surfaceK, w.labelEps);
        if (edit)
            edit(rad);
        DataStorage<std::string> meta;
        meta.setValue(Id::Radiometry::Planck, std::vector<double>{R1, R2, B, F, O});
        meta.setValue(Id::Environment::EmissivityValue, float(s.eps));
        meta.setValue(Id::Environment::ReflectedTemperature,
                      norda::test::celsius(float(s.reflectedK - 273.15)));
        meta.setValue(Id::ProtectiveGlass::Attached, w.tau < 1);
        meta.setValue(Id::ProtectiveGlass::Transmission, float(w.tau));
        meta.setValue(Id::ProtectiveGlass::Emissivity, float(w.glassEps));
        FrameMap in, out;
        in[STREAMING_DATATYPE_YUV422] =
            std::make_unique<Frame>(norda::test::rgbToUyvy(rgb), DataStorage<std::string>());
        in[STREAMING_DATATYPE_RAD_CONST] = std::make_unique<Frame>(rad, std::move(meta));
        element.process(in, out);
        const auto e = store.getValue<Rel>(Id::EmissionMarker::Emissivity).getValue();
        const auto status = store.getValue<std::string>(Id::EmissionMarker::Status);
        EXPECT_EQ(e.isValid(), status == "Valid") << status;
        return {status, e.toFloat()};
    }
    cv::Size irSize;
    norda::test::TempDir dir;
    norda::vision::Registration rig = norda::test::testRig();
    cv::Rect label;
    DataProxy<std::string> store;
    bool defaults = (setDefaultParameters(store), true); // before the element subscribes
    EmissionMarkerElement element{&store, 1, 10, STREAMING_DATATYPE_YUV422};
};

} // namespace

TEST(EmissionMarkerElement, EmissivityOfTheSurfaceOrWhyNot) {
    // Detectors of the calibrated size and of half of it.
    for (const cv::Size ir : {cv::Size(640, 480), cv::Size(320, 240)}) {
        SCOPED_TRACE(ir.width);
        MarkerFixture f(ir);
        World w;
        // Behind protective glass, measured with another emissivity: the surface's own.
        World glass = w;
        glass.tau = 0.85, glass.glassEps = 0.10;
        auto r = f.run(glass, {0.95, 293.15});
        EXPECT_EQ(r.first, "Valid");
        EXPECT_NEAR(r.second, 0.60, 0.003);
        // A reflected temperature set 15 K too warm: the emissivity that setting implies,
        //   eps' = (Sscene - S(Tr')) / (S(T'label) - S(Tr')), S(T'label) = (Slabel - 0.05 S(Tr')) / 0.95.
        const double wrongK = 308.15;
        const double sScene = 0.60 * S(w.surfaceK) + 0.40 * S(w.reflectedK);
        const double sLabel = (0.95 * S(w.surfaceK) + 0.05 * S(w.reflectedK) - 0.05 * S(wrongK)) / 0.95;
        r = f.run(w, {1.0, wrongK});
        EXPECT_EQ(r.first, "Valid");
        EXPECT_NEAR(r.second, (sScene - S(wrongK)) / (sLabel - S(wrongK)), 0.003); // 0.409
        // Pixels beyond or below the scale are no temperatures: on the label, in the surroundings.
        const cv::Point centre = (f.label.tl() + f.label.br()) / 2;
        EXPECT_EQ(f.run(w, {}, false, [&](cv::Mat& rad) { rad.at<uint16_t>(centre) = 65535; }).first,
                  "OverRange");
        EXPECT_EQ(
            f.run(w, {}, false, [&](cv::Mat& rad) { rad.at<uint16_t>(centre.y, f.label.x - 5) = 0; }).first,
            "UnderRange");
        // A label duller than it is said to be makes a black body read above 1: by 3 % (0.95 / 0.92)
        // that is no measurement error; by 0.5 % (0.95 / 0.945) it is, and the surface is black.
        World black = w;
        black.surfaceEps = 1.0, black.labelEps = 0.92;
        EXPECT_EQ(f.run(black, {}).first, "Implausible");
        black.labelEps = 0.945;
        r = f.run(black, {});
        EXPECT_EQ(r.first, "Valid");
        EXPECT_FLOAT_EQ(r.second, 1.0f);
        EXPECT_EQ(f.run(w, {}, true).first, "PartlyCovered");
    }
}
