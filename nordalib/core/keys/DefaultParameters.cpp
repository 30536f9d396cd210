#include "nordalib/core/keys/DefaultParameters.h"

#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/keys/KeySchema.h"
#include "nordalib/core/keys/Keys.h"

#include <opencv2/core.hpp>

#include <mutex>
#include <vector>

namespace norda::exp {

namespace {
using Temp = quantity::Temperature<MarkedFloat>;
Temp celsius(float t) {
    return Temp(MarkedFloat(t));
}

struct Providers {
    std::mutex mutex;
    std::vector<std::function<void(DataProxy<std::string>&)>> list;
};
Providers& providers() {
    static Providers p;
    return p;
}

const char* kRangeItems[] = {"Name", "ToleranceTop", "ToleranceBottom", "DisplayTop", "DisplayBottom",
                             "Top",  "Bottom",       "TnrGain",         "TnrAlpha"};
} // namespace

DataStorage<std::string> makeMeasRange(unsigned char number, float toleranceBottom, float toleranceTop,
                                       float displayBottom, float displayTop) {
    DataStorage<std::string> r;
    r.setValue<unsigned char>("Name", number);
    r.setValue("ToleranceTop", celsius(toleranceTop));
    r.setValue("ToleranceBottom", celsius(toleranceBottom));
    r.setValue("DisplayTop", celsius(displayTop));
    r.setValue("DisplayBottom", celsius(displayBottom));
    r.setValue("Top", celsius(displayTop));
    r.setValue("Bottom", celsius(displayBottom));
    r.setValue<unsigned char>("TnrGain", 16);
    r.setValue<unsigned short>("TnrAlpha", 1843);
    return r;
}

void activateMeasRange(DataProxy<std::string>& proxy, unsigned char number) {
    const auto& pool = proxy.get(Id::MeasRangePool)->value<DataStorage<std::string>>();
    auto entry = pool.getVariant(std::to_string(number));
    if (!entry || !entry->holds<DataStorage<std::string>>())
        NORDA_THROW("measurement range " + std::to_string(number) + " is not in " + Id::MeasRangePool,
                    "norda::exp::activateMeasRange");
    const auto& range = entry->value<DataStorage<std::string>>();
    for (const char* item : kRangeItems) {
        if (std::string(item) == "Name")
            continue;
        if (auto v = range.getVariant(item))
            proxy.set("ActiveMeasRange." + std::string(item), v, true);
    }
    // Announce the range only when it changes: a host that calls this from an observer of the
    // range name must not be called again by its own write.
    if (!proxy.contains(Id::ActiveMeasRange::Name) ||
        proxy.getValue<unsigned char>(Id::ActiveMeasRange::Name) != number)
        proxy.setValue<unsigned char>(Id::ActiveMeasRange::Name, number, true);
}

void setDefaultParameters(DataProxy<std::string>& p) {
    // Written silently; a matrix is copied so that no two stores share its pixels.
    for (const auto& keySpec : keySchema()) {
        if (!keySpec.defaultValue)
            continue;
        if (keySpec.defaultValue->holds<cv::Mat>())
            p.setValue(keySpec.name, keySpec.defaultValue->value<cv::Mat>().clone(), false);
        else
            p.set(keySpec.name, keySpec.defaultValue->clone(), false);
    }

    std::vector<std::function<void(DataProxy<std::string>&)>> more;
    {
        std::lock_guard<std::mutex> lock(providers().mutex);
        more = providers().list;
    }
    for (const auto& provider : more)
        provider(p);
}

void addDefaultParameters(std::function<void(DataProxy<std::string>&)> provider) {
    std::lock_guard<std::mutex> lock(providers().mutex);
    providers().list.push_back(std::move(provider));
}

} // namespace norda::exp
