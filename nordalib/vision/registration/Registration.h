#pragma once
// Registration: where a pixel of the visual camera lies in the infrared image, and back, for an
// object at a given distance; and where the laser pointer's spot lies.
//
// Geometry, all in the infrared camera's coordinates (metres; x right, y down, z along its axis):
//   - the infrared camera at the origin, seen through the chain's distortion correction, i.e. as
//     a pinhole camera without distortion (`infrared`, at the size it was calibrated at; frames
//     of other sizes are scaled readouts of it);
//   - the visual camera at `translation` (the baseline, a few centimetres), turned by `rotation`
//     (visual camera axes -> infrared axes), with its own lens and distortion (`visual`, at its
//     sensor's full size; live modes are scaled readouts of it);
//   - the laser pointer: a ray from `laserOrigin` along `laserDirection`.
// Distances are depths: the z of the object point, its distance from the infrared camera's plane.
//
// Because the two lenses sit apart, a visual pixel's position in the infrared image depends on
// the distance (parallax): a few pixels between 0.5 m and infinity for a baseline of a few
// centimetres. The laser spot's position in the visual image moves along a line with distance,
// which gives the distance of the surface it hits (laserTriangulation).
//
// File (kFileName in the calibration directory), JSON:
//   { "version": 1,
//     "infrared": { "width": 640, "height": 480, "fx": .., "fy": .., "cx": .., "cy": .. },
//     "visual": { "width": 2592, "height": 1944, "fx": .., "fy": .., "cx": .., "cy": ..,
//                 "k1": .., "k2": .., "p1": .., "p2": .., "k3": .. },
//     "rotation": [ 9 numbers, row-major ], "translation": [ x, y, z ],
//     "laser": { "origin": [ x, y, z ], "direction": [ x, y, z ] } }
// load() checks every value: a missing file, malformed JSON, a missing or non-numeric value, a
// rotation that is not one, a baseline over a metre or a laser pointing backwards raise a
// norda::Exception naming the file and the value.

#include "nordalib/vision/registration/CameraModel.h"

#include <opencv2/core.hpp>

#include <string>

namespace norda::vision {

class Registration {
public:
    static constexpr const char* kFileName = "registration.json";

    CameraModel infrared; // undistorted temperature frame, at the calibration's size
    CameraModel visual;   // full sensor
    cv::Matx33d rotation = cv::Matx33d::eye();
    cv::Vec3d translation;
    cv::Vec3d laserOrigin;
    cv::Vec3d laserDirection{0, 0, 1};

    static Registration load(const std::string& file);
    void save(const std::string& file) const;
    // Throws norda::Exception (naming `source`) for the first invalid value.
    void validate(const std::string& source) const;

    // Each camera at the size of its frames (throws for a size that is no scaled readout). Every
    // operation below takes the sizes of the frames it works on: pixels are pixels of those.
    CameraModel visualAt(cv::Size size) const { return visual.scaled(size); }
    CameraModel infraredAt(cv::Size size) const { return infrared.scaled(size); }

    // Infrared pixel (frame of `infraredSize`) of a visual pixel (frame of `visualSize`) on an
    // object at `distance` metres.
    cv::Point2d visualToInfrared(const cv::Point2d& visualPixel, double distance, cv::Size visualSize,
                                 cv::Size infraredSize) const;
    // Visual pixel of an infrared pixel on an object at `distance` metres.
    cv::Point2d infraredToVisual(const cv::Point2d& infraredPixel, double distance, cv::Size visualSize,
                                 cv::Size infraredSize) const;
    // The point in infrared coordinates seen at a visual pixel at `distance`.
    cv::Point3d visualPoint(const cv::Point2d& visualPixel, double distance, cv::Size visualSize) const;

    // The laser spot's visual pixel on a surface at `distance`.
    cv::Point2d laserInVisual(double distance, cv::Size visualSize) const;
    struct LaserFix {
        double distance = 0;  // depth of the spot (metres); <= 0 when the ray misses the laser
        cv::Point3d point;    // spot on the laser ray
        double offLine = 0;   // visual pixels between the spot seen and the laser's line there
        cv::Point2d infrared; // the spot in the infrared image (frame of `infraredSize`)
    };
    // The surface distance from a spot seen at a visual pixel: the point of the laser ray closest
    // to that pixel's line of sight.
    LaserFix laserTriangulation(const cv::Point2d& visualPixel, cv::Size visualSize,
                                cv::Size infraredSize) const;

    // Maps for cv::remap: for every infrared pixel (image of `infraredSize`), the visual pixel it
    // sees at `distance` (CV_32FC1 each).
    void infraredToVisualMaps(double distance, cv::Size infraredSize, cv::Size visualSize, cv::Mat& mapX,
                              cv::Mat& mapY) const;
};

} // namespace norda::vision
