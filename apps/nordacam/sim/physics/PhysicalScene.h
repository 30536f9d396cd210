#pragma once
// What the physical camera looks at: flat, opaque, diffuse grey surfaces facing the camera, each
// of known temperature, emissivity and distance, in front of a background; the surroundings whose
// radiation the surfaces reflect (at their own temperature, not the chain's default); the air in
// between. Objects are placed by the ideal (undistorted) image position of their centre and sized
// in metres, so their footprint shrinks with distance (footprint = f * size / distance).

#include "apps/nordacam/sim/physics/Parameters.h"

#include <opencv2/core.hpp>

#include <optional>
#include <string>
#include <vector>

namespace nordacam::sim::physics {

struct SceneSurface {
    enum class Shape { Rect, Disc };
    std::string name;
    Shape shape = Shape::Rect;
    cv::Point2d centre;                 // ideal image position, pixels
    double widthM = 0.1, heightM = 0.1; // a disc's diameter is widthM
    double distance = 2.0;
    double celsius = 20.0;
    double emissivity = 0.95;

    // Share (0..1) of the ideal pixel (x, y) the surface covers, with focal length fx, fy.
    float coverage(float x, float y, double fx, double fy) const;
    // Bounding box in ideal pixels.
    cv::Rect2d footprint(double fx, double fy) const;
};

// Rotation by angles (degrees) about x, then y, then z: Rz Ry Rx.
cv::Matx33d rotationXyz(const cv::Vec3d& degrees);

// A heated grid for distortion calibration: a flat board carrying heated stripes in a square
// grid, posed by a rotation (degrees about x, then y, then z) and the translation of its centre in
// camera coordinates (x right, y down, z along the optical axis; metres).
struct GridTarget {
    cv::Vec3d rotationDeg{0.0, 0.0, 0.0};
    cv::Vec3d translation{0.0, 0.0, 1.0};
    int rows = 7, cols = 9; // stripes across and along
    double pitch = 0.05;    // metres between stripes
    double lineWidth = 0.004;
    double margin = 0.025; // board beyond the outer stripes
    double hotC = 45.0, boardC = 21.0, emissivity = 0.95;
    // Above 0: warm dots of this radius (metres) at the crossings instead of stripes, the plate
    // with holes over a heater that circle-grid detection looks for.
    double dotRadius = 0.0;

    cv::Matx33d rotation() const;
    // Crossing of stripe row i and column j, camera coordinates.
    cv::Point3d crossing(int i, int j) const;
    // Share of ideal pixel (x, y) the board covers, and the share of that the stripes cover.
    void coverage(float x, float y, double fx, double fy, double cx, double cy, float& board,
                  float& hot) const;
    // The same for a line of sight from `origin` along `direction` (camera coordinates) through a
    // pixel subtending `pixelAngle` radians: a camera elsewhere in the rig.
    void coverage(const cv::Vec3d& origin, const cv::Vec3d& direction, double pixelAngle, float& board,
                  float& hot) const;
};

struct PhysicalScene {
    AirParameters air;
    double reflectedC = 24.0; // the surroundings the surfaces reflect
    double backgroundC = 21.0, backgroundEmissivity = 0.95, backgroundDistance = 30.0;
    std::vector<SceneSurface> surfaces;
    std::optional<GridTarget> grid; // drawn in front of the surfaces

    // A hall: a wall 30 m away, objects from 0.5 to 20 m, two hot discs of equal temperature but
    // very different size (size of source), crumpled foil (emissivity 0.05), a blackbody.
    static PhysicalScene hall();
    // A blackbody source filling `region` (ideal pixels; empty: the whole view) in front of
    // surroundings at `surroundC`, which the blackbody also reflects.
    static PhysicalScene blackbody(double celsius, double surroundC, const BlackbodyParameters& p,
                                   cv::Rect2d region = {}, double fx = 560.0, double fy = 560.0);
    // Checks every value; throws naming the first bad one.
    void validate() const;
};

} // namespace nordacam::sim::physics
