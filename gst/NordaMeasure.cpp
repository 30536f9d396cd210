#include "gst/NordaMeasure.h"

#include "gst/NordaMeasurementMeta.h"

#include "nordalib/core/datatypes/MeasArea.h"
#include "nordalib/core/datatypes/MeasPoint.h"
#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/keys/KeySchema.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/overlay/OverlayFromValues.h"
#include "nordalib/vision/streaming/MinMaxExtractionElement.h"
#include "nordalib/vision/streaming/PaletteElement.h"
#include "nordalib/vision/streaming/StoreStampElement.h"
#include "nordalib/vision/streaming/UserMeasurementElement.h"

#include <fmt/format.h>

#include <algorithm>
#include <sstream>

using namespace norda::exp;
using namespace norda::exp::streaming;
using Temp = quantity::Temperature<MarkedFloat>;
using Rel = quantity::Relation<MarkedFloat>;

struct _GstNordaMeasure {
    GstNordaFilter parent;
    std::vector<cv::Rect>* points; // width = height = 1
    std::vector<cv::Rect>* areas;
    gchar* pointsText;
    gchar* areasText;
    gboolean autoRange;
    gboolean postMessages;
};

G_DEFINE_TYPE(GstNordaMeasure, gst_norda_measure, GST_TYPE_NORDA_FILTER)

namespace {

enum { PROP_0, PROP_POINTS, PROP_AREAS, PROP_AUTO_RANGE, PROP_POST_MESSAGES };
// How many points or areas the library's table of user marks holds.
size_t markCount(bool area) {
    const auto& marks = userMarks();
    return std::count_if(marks.begin(), marks.end(), [area](const UserMark& m) { return m.area == area; });
}

// "x,y;x,y" (points) or "x,y,w,h;..." (areas); false on anything else.
bool parseRects(const char* text, int numbers, size_t most, std::vector<cv::Rect>& out) {
    out.clear();
    std::stringstream all(text ? text : "");
    std::string item;
    while (std::getline(all, item, ';')) {
        if (item.find_first_not_of(" ") == std::string::npos)
            continue;
        std::stringstream one(item);
        std::vector<int> v;
        std::string n;
        while (std::getline(one, n, ',')) {
            char* end = nullptr;
            const long x = std::strtol(n.c_str(), &end, 10);
            if (end == n.c_str() || *end != '\0' || x < 0 || x > 65535)
                return false;
            v.push_back(static_cast<int>(x));
        }
        if (static_cast<int>(v.size()) != numbers)
            return false;
        out.push_back(numbers == 2 ? cv::Rect(v[0], v[1], 1, 1) : cv::Rect(v[0], v[1], v[2], v[3]));
    }
    return out.size() <= most;
}

void writeSettings(GstNordaMeasure* self, DataProxy<std::string>& store) {
    GST_OBJECT_LOCK(self);
    size_t point = 0, area = 0;
    for (const auto& m : userMarks()) {
        const auto& placed = m.area ? *self->areas : *self->points;
        const size_t i = m.area ? area++ : point++;
        const bool on = i < placed.size();
        store.setValue(m.visible, on, true);
        if (on && m.area)
            store.setValue(m.rect, cv::Rect_<int>(placed[i]), true);
        else if (on)
            store.setValue(m.position, cv::Point_<int>(placed[i].tl()), true);
    }
    store.setValue(Id::MeasRangeSettings::EnableAutoRange, static_cast<bool>(self->autoRange), true);
    GST_OBJECT_UNLOCK(self);
}

// What lies outside a w x h image, or empty.
std::string outside(const std::vector<cv::Rect>& rects, cv::Size size, const char* what) {
    for (const auto& r : rects)
        if (r.width <= 0 || r.height <= 0 || (r & cv::Rect({0, 0}, size)) != r)
            return fmt::format("the {} ({}, {}, {} x {}) does not lie inside the {} x {} image", what, r.x,
                               r.y, r.width, r.height, size.width, size.height);
    return {};
}

std::string build(GstNordaFilter* filter, Pipeline& chain, DataProxy<std::string>& store) {
    auto* self = GST_NORDA_MEASURE(filter);
    const cv::Size size(store.getValue<unsigned short>(Id::IrImage::Cols),
                        store.getValue<unsigned short>(Id::IrImage::Rows));
    for (auto problem : {outside(*self->points, size, "point"), outside(*self->areas, size, "area")})
        if (!problem.empty())
            return std::string(GST_ELEMENT_NAME(filter)) + ": " + problem;
    store.setValue(Id::MeasPoints::CenterSpot::Position, cv::Point_<int>(size.width / 2, size.height / 2),
                   true);
    writeSettings(self, store);
    chain.add(std::make_unique<MinMaxExtractionElement>(&store, STREAMING_DATATYPE_RAD, false));
    chain.add(std::make_unique<UserMeasurementElement>(&store));
    // What the palette and the overlay downstream read from the frame.
    std::vector<std::string> keys = PaletteElement::metadataKeys();
    for (const auto& k : norda::vision::overlayKeys())
        if (std::find(keys.begin(), keys.end(), k) == keys.end())
            keys.push_back(k);
    chain.add(
        std::make_unique<StoreStampElement>(store, STREAMING_DATATYPE_RAD_CONST, keys, "DisplaySettings"));
    return {};
}

// A value as °C (or % relative humidity in humidity mode), NaN when there is none.
float valueOf(const std::shared_ptr<Variant>& v) {
    if (v && v->holds<Temp>())
        return v->value<Temp>().celsius();
    if (v && v->holds<Rel>())
        return v->value<Rel>().getValue().toFloat() * 100.0f;
    return NAN;
}

int markOf(const std::shared_ptr<Variant>& v) {
    if (v && v->holds<Temp>())
        return v->value<Temp>().getValue().getMark();
    if (v && v->holds<Rel>())
        return v->value<Rel>().getValue().getMark();
    return -1;
}

void addPoint(GstStructure* s, const std::string& name, const MeasPoint& p) {
    gst_structure_set(s, (name + "-x").c_str(), G_TYPE_INT, int(p.getX()), (name + "-y").c_str(), G_TYPE_INT,
                      int(p.getY()), (name + "-c").c_str(), G_TYPE_FLOAT, valueOf(p.getValue()),
                      (name + "-mark").c_str(), G_TYPE_INT, markOf(p.getValue()), nullptr);
}

void finish(GstNordaFilter* filter, const Frame& frame, GstBuffer* buffer) {
    auto* self = GST_NORDA_MEASURE(filter);
    const auto& meta = frame.getMetaData();
    GstStructure* s = gst_structure_new_empty("norda-measurement");
    if (auto n = meta.getVariant("FrameCnt"); n && n->holds<unsigned long long>())
        gst_structure_set(s, "frame", G_TYPE_UINT64, static_cast<guint64>(n->value<unsigned long long>()),
                          nullptr);
    gst_structure_set(s, "pts", G_TYPE_UINT64, static_cast<guint64>(GST_BUFFER_PTS(buffer)), nullptr);
    auto point = [&](const std::string& key, const std::string& name) {
        if (auto v = meta.getVariant(key); v && v->holds<MeasPoint>())
            addPoint(s, name, v->value<MeasPoint>());
    };
    point(Id::MeasPoints::HotSpot::MeasPoint, "hot");
    point(Id::MeasPoints::ColdSpot::MeasPoint, "cold");
    point(Id::MeasPoints::CenterSpot::MeasPoint, "centre");
    // The placed marks ("point1", "area2": the mark's number among the points or the areas); their
    // numbers may change on the application's thread.
    GST_OBJECT_LOCK(self);
    const size_t points = self->points->size(), areas = self->areas->size();
    GST_OBJECT_UNLOCK(self);
    size_t pointNumber = 0, areaNumber = 0;
    for (const auto& m : userMarks()) {
        const size_t number = m.area ? ++areaNumber : ++pointNumber;
        if (number > (m.area ? areas : points))
            continue;
        const std::string name = (m.area ? "area" : "point") + std::to_string(number);
        auto v = meta.getVariant(m.result);
        if (!m.area) {
            if (v && v->holds<MeasPoint>())
                addPoint(s, name, v->value<MeasPoint>());
            continue;
        }
        if (!v || !v->holds<MeasArea>())
            continue;
        const auto& a = v->value<MeasArea>();
        const auto r = a.getAreaRect();
        gst_structure_set(s, (name + "-x").c_str(), G_TYPE_INT, r.x, (name + "-y").c_str(), G_TYPE_INT, r.y,
                          (name + "-width").c_str(), G_TYPE_INT, r.width, (name + "-height").c_str(),
                          G_TYPE_INT, r.height, (name + "-mean-c").c_str(), G_TYPE_FLOAT,
                          valueOf(a.getMeanValue()), nullptr);
        addPoint(s, name + "-hot", a.getHotSpot());
        addPoint(s, name + "-cold", a.getColdSpot());
    }
    norda_measurement_meta_set(buffer, s);
    if (self->postMessages)
        gst_element_post_message(GST_ELEMENT(filter), gst_message_new_element(GST_OBJECT(filter), s));
    else
        gst_structure_free(s);
}

void setProperty(GObject* object, guint id, const GValue* value, GParamSpec* pspec) {
    auto* self = GST_NORDA_MEASURE(object);
    auto* filter = GST_NORDA_FILTER(self);
    switch (id) {
    case PROP_POINTS:
    case PROP_AREAS: {
        const bool points = id == PROP_POINTS;
        const char* text = g_value_get_string(value);
        std::vector<cv::Rect> parsed;
        if (!parseRects(text, points ? 2 : 4, markCount(!points), parsed)) {
            gst_norda_filter_refuse(
                filter, points
                            ? fmt::format("points \"{}\" are not up to {} positions \"x,y;x,y\"",
                                          text ? text : "", markCount(false))
                            : fmt::format("areas \"{}\" are not up to {} rectangles \"x,y,width,height;...\"",
                                          text ? text : "", markCount(true)));
            break;
        }
        if (gst_norda_filter_is_built(filter)) {
            auto& store = gst_norda_filter_store(filter);
            const cv::Size size(store.getValue<unsigned short>(Id::IrImage::Cols),
                                store.getValue<unsigned short>(Id::IrImage::Rows));
            if (auto problem = outside(parsed, size, points ? "point" : "area"); !problem.empty()) {
                gst_norda_filter_refuse(filter, problem);
                break;
            }
        }
        GST_OBJECT_LOCK(self);
        *(points ? self->points : self->areas) = parsed;
        GST_OBJECT_UNLOCK(self);
        gchar*& kept = points ? self->pointsText : self->areasText;
        g_free(kept);
        kept = g_strdup(text ? text : "");
        if (gst_norda_filter_is_built(filter))
            writeSettings(self, gst_norda_filter_store(filter));
        break;
    }
    case PROP_AUTO_RANGE:
        self->autoRange = g_value_get_boolean(value);
        writeSettings(self, gst_norda_filter_store(filter));
        break;
    case PROP_POST_MESSAGES:
        self->postMessages = g_value_get_boolean(value);
        break;
    default:
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
    }
}

void getProperty(GObject* object, guint id, GValue* value, GParamSpec* pspec) {
    auto* self = GST_NORDA_MEASURE(object);
    switch (id) {
    case PROP_POINTS:
        g_value_set_string(value, self->pointsText);
        break;
    case PROP_AREAS:
        g_value_set_string(value, self->areasText);
        break;
    case PROP_AUTO_RANGE:
        g_value_set_boolean(value, self->autoRange);
        break;
    case PROP_POST_MESSAGES:
        g_value_set_boolean(value, self->postMessages);
        break;
    default:
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
    }
}

void finalize(GObject* object) {
    auto* self = GST_NORDA_MEASURE(object);
    delete self->points;
    delete self->areas;
    g_free(self->pointsText);
    g_free(self->areasText);
    G_OBJECT_CLASS(gst_norda_measure_parent_class)->finalize(object);
}

} // namespace

static void gst_norda_measure_class_init(GstNordaMeasureClass* klass) {
    auto* object = G_OBJECT_CLASS(klass);
    object->set_property = setProperty;
    object->get_property = getProperty;
    object->finalize = finalize;
    const auto live =
        static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_PLAYING);
    g_object_class_install_property(
        object, PROP_POINTS,
        g_param_spec_string(
            "points", "Measurement points",
            "Up to 5 points measured every frame, pixel positions \"x,y;x,y\" inside the image", "", live));
    g_object_class_install_property(
        object, PROP_AREAS,
        g_param_spec_string("areas", "Measurement areas",
                            "Up to 3 rectangles \"x,y,width,height;...\" inside the image: hot spot, cold "
                            "spot and mean of each",
                            "", live));
    g_object_class_install_property(
        object, PROP_AUTO_RANGE,
        g_param_spec_boolean("auto-range", "Automatic range switch",
                             "Switch between the low and the high measurement range by the scene (the "
                             "detector must follow Id ActiveMeasRange.Name)",
                             FALSE, live));
    g_object_class_install_property(
        object, PROP_POST_MESSAGES,
        g_param_spec_boolean("post-messages", "Post messages",
                             "Post the results as element messages \"norda-measurement\" on the bus every "
                             "frame (the buffer carries them as NordaMeasurementMeta either way)",
                             TRUE, live));

    gst_norda_filter_class_describe(
        GST_NORDA_FILTER_CLASS(klass),
        {.longName = "Thermal measurement",
         .classification = "Filter/Analyzer/Video",
         .description =
             "Hot spot, cold spot, points and areas of temperature frames, posted on the bus and attached to "
             "the buffers",
         .inputFormat = "GRAY16_LE",
         .outputFormat = "GRAY16_LE",
         .acceptedSlots = {STREAMING_DATATYPE_RAD, STREAMING_DATATYPE_RAD_CONST},
         .acceptedDescription = "temperature frames (put nordaradiometry before it)",
         .chainInput = STREAMING_DATATYPE_RAD,
         .chainOutput = STREAMING_DATATYPE_RAD_CONST,
         .build = build,
         .finish = finish});
}

static void gst_norda_measure_init(GstNordaMeasure* self) {
    self->points = new std::vector<cv::Rect>;
    self->areas = new std::vector<cv::Rect>;
    self->pointsText = g_strdup("");
    self->areasText = g_strdup("");
    self->autoRange = FALSE;
    self->postMessages = TRUE;
    writeSettings(self, gst_norda_filter_store(GST_NORDA_FILTER(self)));
}
