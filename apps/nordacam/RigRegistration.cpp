#include "apps/nordacam/RigRegistration.h"

namespace nordacam {

norda::vision::Registration rigRegistration(const sim::Rig& rig, const sim::LensModel& lens,
                                            cv::Size infraredSize) {
    norda::vision::Registration r;
    r.infrared.size = infraredSize;
    r.infrared.fx = lens.fx;
    r.infrared.fy = lens.fy;
    r.infrared.cx = lens.cx;
    r.infrared.cy = lens.cy;
    r.visual.size = rig.visualSize;
    r.visual.fx = rig.fx;
    r.visual.fy = rig.fy;
    r.visual.cx = rig.cx;
    r.visual.cy = rig.cy;
    r.visual.k1 = rig.k1;
    r.visual.k2 = rig.k2;
    r.visual.p1 = rig.p1;
    r.visual.p2 = rig.p2;
    r.visual.k3 = rig.k3;
    r.rotation = rig.rotation();
    r.translation = rig.translation;
    r.laserOrigin = rig.laserOrigin;
    r.laserDirection = rig.laserDirection / cv::norm(rig.laserDirection);
    return r;
}

} // namespace nordacam
