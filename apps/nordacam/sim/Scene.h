#pragma once
// The simulated scene both cameras film: a hall whose back wall is 10 m away, objects of known
// distance, temperature and emissivity in front of it, three heated plates carrying emissivity
// reference labels, a cabinet of painted metal and a crumpled-foil reflector for the reflected
// temperature, a board moved through distances in front of the laser pointer, and print on the
// surfaces that only the visual camera sees. Every surface reflects surroundings at kReflectedC.
//
// Objects are flat and face the cameras. Each is given by its footprint in the undistorted
// infrared image (pixels of the config's size) and its distance (depth along the infrared axis),
// so the infrared simulator draws footprints directly and the visual camera intersects its lines
// of sight with each object's plane and looks the footprint up there: parallax comes out of the
// geometry. Edges are soft over 1.5 infrared pixels (the optics' blur).
//
// The rig: the visual camera's lens a few centimetres beside the infrared lens, slightly turned,
// with a wider field of view and barrel distortion; a laser pointer below them, parallel to the
// infrared axis. Its truth is what `nordacam calib registration` writes.

#include <opencv2/core.hpp>

#include <optional>
#include <string>
#include <vector>

namespace nordacam::sim {

struct LensModel {
    double fx = 560.0, fy = 560.0, cx = 319.5, cy = 239.5;
    double k1 = -0.18, k2 = 0.06, p1 = 0.0004, p2 = -0.0003, k3 = 0.0; // as the physical camera's
};

// The camera rig's true geometry (infrared camera coordinates, metres).
struct Rig {
    // The visual sensor at full size; live modes are scaled readouts of it.
    cv::Size visualSize{2592, 1944};
    double fx = 1852.0, fy = 1852.0, cx = 1301.3, cy = 968.2;
    double k1 = -0.115, k2 = 0.021, p1 = 0.0004, p2 = -0.0003, k3 = 0.0;
    cv::Vec3d rotationDeg{0.25, -0.40, 0.15}; // visual axes turned about x, y, z
    cv::Vec3d translation{0.045, -0.006, 0.004};
    cv::Vec3d laserOrigin{0.020, 0.042, 0.010};
    cv::Vec3d laserDirection{0.0, -0.002, 1.0}; // as the physical rig's (RigParameters)

    cv::Matx33d rotation() const;
};

enum class Shape { RoundedRect, Disc };

struct SceneObject {
    std::string name;
    Shape shape = Shape::RoundedRect;
    cv::Rect2f rect;  // footprint (for a disc: its bounding square)
    float radius = 0; // corner radius or disc radius (infrared pixels)
    float distance = 10.0f;
    float celsius = 22.0f;
    float emissivity = 0.95f;
    bool infrared = true; // false: at the temperature of what lies behind it, the infrared sees none
    cv::Vec3f colour;     // RGB
    cv::Mat texture;      // optional CV_8UC3 RGB print over the footprint
    float coverage(float x, float y) const;
};

struct Plate {
    std::string name;
    cv::Rect2f rect;  // plate footprint
    cv::Rect2f label; // the reference label on it
    float celsius = 0, emissivity = 0, distance = 0;
};

struct LaserTruth {
    cv::Point3d point;    // where the ray hits (infrared camera coordinates)
    double distance = 0;  // its depth
    cv::Point2d infrared; // its position in the undistorted infrared image
    std::string surface;
};

struct SceneTemperatures {
    float backgroundC = 22.0f, warmC = 37.0f, hotC = 85.0f, coldC = 4.0f;
};

class Scene {
public:
    static constexpr float kWallDistance = 10.0f;
    static constexpr float kLabelSize = 0.05f; // reference labels, metres
    static constexpr double kBoardStepS = 1.0; // the laser board's dwell at each distance
    // What the surfaces reflect: the room's ceiling, lamps and people, warmer than the air and not
    // at the 20 °C a camera assumes until told otherwise.
    static constexpr float kReflectedC = 24.0f;
    static constexpr const char* kPanelName = "painted panel";
    static constexpr const char* kReflectorName = "reflector";

    Scene(cv::Size size, const LensModel& lens, const SceneTemperatures& t, const Rig& rig);

    // Everything at time t, nearest first; the wall is not among them (see wallC).
    std::vector<SceneObject> objects(double timeS) const;
    // The objects that never move, nearest first.
    const std::vector<SceneObject>& staticObjects() const { return m_static; }
    // A static object by name (kPanelName, kReflectorName, ...); throws for an unknown one.
    const SceneObject& staticObject(const std::string& name) const;
    SceneObject hotObject(double timeS) const;
    std::optional<SceneObject> board(double timeS) const;
    float wallC(float y) const;
    // Colour of the wall and of an object at an undistorted infrared pixel.
    cv::Vec3f wallColour(float x, float y) const;
    static cv::Vec3f colourOf(const SceneObject& o, float x, float y);
    static constexpr float kWallEmissivity = 0.95f;
    // True temperature at an undistorted infrared pixel (what the infrared camera sees there).
    float temperatureAt(float x, float y, double timeS) const;
    const std::vector<Plate>& plates() const { return m_plates; }
    LaserTruth laser(double timeS) const;
    cv::Point2d project(const cv::Point3d& p) const; // undistorted infrared pixel
    const Rig& rig() const { return m_rig; }
    cv::Size size() const { return m_size; }
    const SceneTemperatures& temperatures() const { return m_t; }
    cv::Point2f hotCentre(double timeS) const;
    static constexpr float kHotRadius = 30.0f, kColdRadius = 42.0f;

private:
    void build();
    SceneObject footprint(const std::string& name, cv::Point2f centre, float widthM, float heightM,
                          float distance) const;

    cv::Size m_size;
    LensModel m_lens;
    SceneTemperatures m_t;
    Rig m_rig;
    std::vector<SceneObject> m_static;
    std::vector<Plate> m_plates;
    cv::Mat m_wallTexture; // print on the wall, over the whole infrared image
};

} // namespace nordacam::sim
