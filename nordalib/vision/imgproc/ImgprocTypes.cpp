#include "nordalib/vision/imgproc/ImgprocTypes.h"

#include "nordalib/core/datatypes/VariantRegistry.h"
#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/imgproc/BadPixel.h"
#include "nordalib/vision/imgproc/Palettes.h"

#include <mutex>

namespace norda::vision {

void registerImgprocTypes() {
    static std::once_flag once;
    std::call_once(once, [] {
        exp::VariantRegistry::instance().add<BadPixel>();
        exp::VariantRegistry::instance().add<std::vector<BadPixel>>();
        exp::addDefaultParameters([](exp::DataProxy<std::string>& p) {
            p.setValue(exp::Id::IrSensor::BadPixelList, BadPixelList(), false);
            p.setValue(exp::Id::Palette::ActivePalette, std::string("iron"), false);
            p.setValue(exp::Id::Palette::Colors, Palettes::colors("iron"), false);
        });
    });
}

} // namespace norda::vision

extern "C" const int norda_imgproc_types = (norda::vision::registerImgprocTypes(), 1);
