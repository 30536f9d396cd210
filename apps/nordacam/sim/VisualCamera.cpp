#include "apps/nordacam/sim/VisualCamera.h"

#include "nordalib/core/keys/Keys.h"
#include "nordalib/core/logging/Logger.h"

#include <algorithm>
#include <cmath>

namespace nordacam::sim {

using namespace norda::exp;

VisualCamera::VisualCamera(DataProxy<std::string>& store, const Scene& scene, VisualConfig config)
    : m_store(store), m_scene(scene), m_config(config), m_rig(rigOf(scene.rig())), m_rng(config.seed) {
    m_noiseBank.resize(640 * 480 * 2);
    cv::Mat bank(1, int(m_noiseBank.size()), CV_32FC1, m_noiseBank.data());
    m_rng.fill(bank, cv::RNG::NORMAL, 0.0, m_config.noise);
}

cv::Size VisualCamera::sizeOf(const std::string& resolution) {
    if (resolution == Id::Viscam::Resolution::Qvga)
        return {320, 240};
    if (resolution == Id::Viscam::Resolution::Vga)
        return {640, 480};
    if (resolution == Id::Viscam::Resolution::Xga)
        return {1024, 768};
    if (resolution == Id::Viscam::Resolution::Qsxga)
        return {2592, 1944};
    return {};
}

physics::RigParameters VisualCamera::rigOf(const Rig& rig) {
    physics::RigParameters p;
    p.visualWidth = rig.visualSize.width;
    p.visualHeight = rig.visualSize.height;
    p.visualLens = {rig.fx, rig.fy, rig.cx, rig.cy, rig.k1, rig.k2, rig.k3, rig.p1, rig.p2};
    p.rotationDeg = rig.rotationDeg;
    p.translation = rig.translation;
    p.laserOrigin = rig.laserOrigin;
    p.laserDirection = rig.laserDirection;
    return p;
}

const cv::Mat& VisualCamera::rays(cv::Size size) {
    cv::Mat& r = m_rays[{size.width, size.height}];
    if (r.empty())
        r = m_rig.rays(size);
    return r;
}

cv::Vec3f VisualCamera::shade(const cv::Vec3f& ray, const std::vector<SceneObject>& objects) const {
    const Rig& rig = m_scene.rig();
    const cv::Vec3d d(ray[0], ray[1], ray[2]);
    auto footprintAt = [&](double depth) {
        const cv::Vec3d p = rig.translation + (depth - rig.translation[2]) / d[2] * d;
        return m_scene.project({p[0], p[1], p[2]});
    };
    cv::Vec3f colour(0, 0, 0);
    float rest = 1.0f;
    for (const auto& o : objects) {
        const cv::Point2d u = footprintAt(o.distance);
        if (u.x < o.rect.x - 2 || u.y < o.rect.y - 2 || u.x > o.rect.br().x + 2 || u.y > o.rect.br().y + 2)
            continue;
        const float c = o.coverage(float(u.x), float(u.y));
        if (c <= 0.0f)
            continue;
        colour += rest * c * Scene::colourOf(o, float(u.x), float(u.y));
        rest *= 1.0f - c;
        if (rest < 0.004f)
            return colour;
    }
    const cv::Point2d wall = footprintAt(Scene::kWallDistance);
    return colour + rest * m_scene.wallColour(float(wall.x), float(wall.y));
}

void VisualCamera::shadeBox(cv::Mat& rgb, const cv::Mat& rays, const std::vector<SceneObject>& objects,
                            const SceneObject& o) const {
    // The footprint's outline seen by this camera bounds what the object can change.
    double x0 = 1e9, y0 = 1e9, x1 = -1e9, y1 = -1e9;
    for (float fx : {0.0f, 0.5f, 1.0f})
        for (float fy : {0.0f, 0.5f, 1.0f}) {
            const cv::Point2d ir(o.rect.x + fx * o.rect.width, o.rect.y + fy * o.rect.height);
            // Back from the undistorted infrared image to the point at the object's depth.
            const cv::Point2d c = m_scene.project({0, 0, 1});
            const double f = m_scene.project({1, 0, 1}).x - c.x, g = m_scene.project({0, 1, 1}).y - c.y;
            const cv::Point3d p((ir.x - c.x) / f * o.distance, (ir.y - c.y) / g * o.distance, o.distance);
            const cv::Point2d v = m_rig.project(p, rgb.size());
            x0 = std::min(x0, v.x), y0 = std::min(y0, v.y), x1 = std::max(x1, v.x), y1 = std::max(y1, v.y);
        }
    const cv::Rect box = cv::Rect(cv::Point(int(std::floor(x0)) - 3, int(std::floor(y0)) - 3),
                                  cv::Point(int(std::ceil(x1)) + 4, int(std::ceil(y1)) + 4)) &
                         cv::Rect(cv::Point(0, 0), rgb.size());
    for (int y = box.y; y < box.y + box.height; ++y) {
        auto* row = rgb.ptr<cv::Vec3b>(y);
        for (int x = box.x; x < box.x + box.width; ++x) {
            const cv::Vec3f c = shade(rays.at<cv::Vec3f>(y, x), objects);
            row[x] = cv::Vec3b(cv::saturate_cast<uchar>(c[0]), cv::saturate_cast<uchar>(c[1]),
                               cv::saturate_cast<uchar>(c[2]));
        }
    }
}

void VisualCamera::drawLaser(cv::Mat& rgb, const LaserTruth& laser) const {
    // The surface's reflectance at the laser's red from how bright it looks in the red channel.
    const cv::Point2d at = m_rig.project(laser.point, rgb.size());
    const cv::Point p(std::clamp(int(std::lround(at.x)), 0, rgb.cols - 1),
                      std::clamp(int(std::lround(at.y)), 0, rgb.rows - 1));
    const double rho = std::clamp(rgb.at<cv::Vec3b>(p)[0] / 255.0, 0.02, 1.0);
    physics::RigLaserTruth truth;
    const cv::Mat e = m_rig.laserSpot(laser.distance, rho, rgb.size(), m_config.exposureS, &truth);
    // Counts at the full well; the colour filters let a little of the red through to green and blue.
    const double toCounts = 255.0 / physics::VisualSensorParameters{}.fullWellElectrons;
    const int reach = int(std::ceil(4.0 * truth.spot.radiusPx)) + 2;
    const cv::Rect box =
        cv::Rect(int(truth.visual.x) - reach, int(truth.visual.y) - reach, 2 * reach + 1, 2 * reach + 1) &
        cv::Rect(0, 0, rgb.cols, rgb.rows);
    for (int y = box.y; y < box.y + box.height; ++y) {
        auto* row = rgb.ptr<cv::Vec3b>(y);
        const float* spot = e.ptr<float>(y);
        for (int x = box.x; x < box.x + box.width; ++x) {
            const double v = spot[x] * toCounts;
            row[x] = cv::Vec3b(cv::saturate_cast<uchar>(row[x][0] + v),
                               cv::saturate_cast<uchar>(row[x][1] + 0.045 * v),
                               cv::saturate_cast<uchar>(row[x][2] + 0.035 * v));
        }
    }
}

cv::Mat VisualCamera::render(cv::Size size, double timeS) {
    const cv::Mat& lines = rays(size);
    auto& still = m_static[{size.width, size.height}];
    if (still.empty()) {
        still.create(size, CV_8UC3);
        const auto& objects = m_scene.staticObjects();
        cv::parallel_for_(cv::Range(0, size.height), [&](const cv::Range& rows) {
            for (int y = rows.start; y < rows.end; ++y) {
                auto* row = still.ptr<cv::Vec3b>(y);
                for (int x = 0; x < size.width; ++x) {
                    const cv::Vec3f c = shade(lines.at<cv::Vec3f>(y, x), objects);
                    row[x] = cv::Vec3b(cv::saturate_cast<uchar>(c[0]), cv::saturate_cast<uchar>(c[1]),
                                       cv::saturate_cast<uchar>(c[2]));
                }
            }
        });
    }
    cv::Mat rgb = still.clone();
    const auto objects = m_scene.objects(timeS);
    shadeBox(rgb, lines, objects, m_scene.hotObject(timeS));
    if (auto board = m_scene.board(timeS))
        shadeBox(rgb, lines, objects, *board);
    if (m_config.laser)
        drawLaser(rgb, m_scene.laser(timeS));
    return rgb;
}

cv::Mat VisualCamera::toUyvy(const cv::Mat& rgb, const std::vector<float>* noise, size_t offset) {
    // ITU-R BT.601, video range, chroma of each pair from the pair's mean colour.
    cv::Mat out(rgb.size(), CV_8UC2);
    size_t k = offset;
    for (int y = 0; y < rgb.rows; ++y) {
        const auto* in = rgb.ptr<cv::Vec3b>(y);
        uchar* o = out.ptr<uchar>(y);
        for (int x = 0; x + 1 < rgb.cols; x += 2, k += 2) {
            const int r0 = in[x][0], g0 = in[x][1], b0 = in[x][2], r1 = in[x + 1][0], g1 = in[x + 1][1],
                      b1 = in[x + 1][2];
            const float n0 = noise ? (*noise)[k % noise->size()] : 0.0f;
            const float n1 = noise ? (*noise)[(k + 1) % noise->size()] : 0.0f;
            const int y0 = 16 + ((66 * r0 + 129 * g0 + 25 * b0 + 128) >> 8);
            const int y1 = 16 + ((66 * r1 + 129 * g1 + 25 * b1 + 128) >> 8);
            const int r = (r0 + r1 + 1) / 2, g = (g0 + g1 + 1) / 2, b = (b0 + b1 + 1) / 2;
            o[2 * x] = cv::saturate_cast<uchar>(128 + ((-38 * r - 74 * g + 112 * b + 128) >> 8));
            o[2 * x + 1] = cv::saturate_cast<uchar>(int(float(y0) + n0 + 0.5f));
            o[2 * x + 2] = cv::saturate_cast<uchar>(128 + ((112 * r - 94 * g - 18 * b + 128) >> 8));
            o[2 * x + 3] = cv::saturate_cast<uchar>(int(float(y1) + n1 + 0.5f));
        }
    }
    return out;
}

std::unique_ptr<Frame> VisualCamera::frameAt(cv::Size size, unsigned long long n) {
    const double timeS = double(n + m_config.infraredLagFrames) / m_config.fps;
    const cv::Mat rgb = render(size, timeS);
    const size_t start = size_t(m_rng.uniform(0, int(m_noiseBank.size())));
    const cv::Mat uyvy = toUyvy(rgb, &m_noiseBank, start);
    DataStorage<std::string> meta;
    meta.setValue(Id::Viscam::CaptureTime, float(1000.0 / m_config.fps));
    meta.setValue<unsigned long long>(
        Id::Viscam::Timestamp, m_config.uptimeStartMs + (unsigned long long)std::llround(timeS * 1000.0));
    meta.setValue<unsigned long long>(Id::Viscam::FrameCounter, n);
    return std::make_unique<Frame>(uyvy, std::move(meta));
}

std::unique_ptr<Frame> VisualCamera::nextLive() {
    const unsigned long long n = m_frame++;
    const std::string resolution = m_store.getValue<std::string>(Id::Viscam::CurrentImageResolution);
    const cv::Size size = sizeOf(resolution);
    if (size.empty()) {
        if (!m_warnedResolution)
            norda::logging::Logger::createSharedLogger("NORDACAM", true)
                ->log(norda::logging::LogLevel::warning,
                      "visual camera: unknown resolution {}, staying at {}x{}", resolution, m_liveSize.width,
                      m_liveSize.height);
        m_warnedResolution = true;
    } else if (resolution != Id::Viscam::Resolution::Qsxga) {
        m_liveSize = size;
        m_warnedResolution = false;
    }
    {
        std::lock_guard<std::mutex> lock(m_truthMutex);
        m_truth.frame = n;
        m_truth.timeS = double(n + m_config.infraredLagFrames) / m_config.fps;
        m_truth.timestampMs =
            m_config.uptimeStartMs + (unsigned long long)std::llround(m_truth.timeS * 1000.0);
        m_truth.laser = m_scene.laser(m_truth.timeS);
        m_truth.laserVisual = m_rig.project(m_truth.laser.point, m_liveSize);
        m_truth.liveSize = m_liveSize;
    }
    if (m_config.dropEvery > 0 && n % m_config.dropEvery == unsigned(m_config.dropEvery - 1))
        return nullptr;
    unsigned long long shown = n;
    if (m_config.swapEvery > 1) {
        const auto phase = n % m_config.swapEvery;
        if (phase == unsigned(m_config.swapEvery - 2))
            shown = n + 1;
        else if (phase == unsigned(m_config.swapEvery - 1))
            shown = n - 1;
    }
    return frameAt(m_liveSize, shown);
}

std::unique_ptr<Frame> VisualCamera::nextStill() {
    if (m_frame == 0 ||
        m_store.getValue<std::string>(Id::Viscam::CurrentImageResolution) != Id::Viscam::Resolution::Qsxga)
        return nullptr;
    return frameAt(sizeOf(Id::Viscam::Resolution::Qsxga), m_frame - 1);
}

VisualTruth VisualCamera::truth() const {
    std::lock_guard<std::mutex> lock(m_truthMutex);
    return m_truth;
}

} // namespace nordacam::sim
