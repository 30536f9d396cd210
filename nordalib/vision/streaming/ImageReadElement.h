#pragma once
// ImageReadElement: brings a saved radiometric image back into the chain.
//
// The gallery names the image to show in Gallery.ActiveFilename (a path, or a name relative to
// the image folder); an empty name ends the display. The element loads that Rix file once, on
// the pipeline thread, and then delivers on every cycle its radiometric image in slot 3 (the
// super-resolution image for an "SR" file) and its visual image in the visual slot. Both frames
// carry the stored settings as metadata (the file's generic entries, scaling limits, emissivity,
// reflected temperature) and Gallery.ActiveFilename, so that measurement and palette elements
// re-evaluate the stored image and the image write element passes the metadata to the gallery
// instead of saving. Gallery.ForceUpdate set true reloads the file (after it was rewritten).
// A missing or damaged file is reported once and yields no frames until another name is set.
// With Gallery.Reanalysis.Active the image's temperatures are re-analysed for the emissivity and
// reflected temperature of Gallery.Reanalysis.* (a change reloads), and its frames carry those.
//
// Slots: no inputs; outputs {3, visual slot}. process returns true when it delivered frames.

#include "nordalib/core/dataproxy/DataProxy.h"
#include "nordalib/core/logging/Logger.h"
#include "nordalib/vision/rix/RixReanalysis.h"
#include "nordalib/vision/streaming/StreamingElement.h"

#include <opencv2/core.hpp>

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace norda::vision {
class Rix;
}

namespace norda::exp::streaming {

class ImageReadElement : public StreamingElement {
public:
    // `imageFolder`: base of relative file names. `metaDataKeys`: the generic entries handed on
    // (empty: all of them). `visualSlot`: where the visual image goes (normally 6).
    ImageReadElement(DataProxy<std::string>* dataProxy, const std::string& imageFolder,
                     const std::vector<std::string>& metaDataKeys, int priority,
                     STREAMING_DATATYPE visualSlot);
    ~ImageReadElement() override;

    bool process(FrameMap& inputs, FrameMap& outputs) override;

    // What the gallery's re-analysis (Id::Gallery::Reanalysis::*) asks of the shown image.
    static vision::RixReanalysis::Changes requestedChanges(const DataProxy<std::string>& store);

    // The file currently delivered ("" when none).
    std::string getLoadedFilename() const { return m_loaded ? m_loaded->name : std::string(); }

private:
    struct Loaded {
        std::string name;
        cv::Mat radiometric;
        cv::Mat visual;
        DataStorage<std::string> metaData;
    };

    void requestFile(const std::string& name);
    void load(const std::string& name);
    std::string resolve(const std::string& name) const;
    void reanalyse(const vision::Rix& rix, Loaded& loaded);

    DataProxy<std::string>* m_pDataProxy;
    std::string m_strImageFolder;
    std::vector<std::string> m_vecMetaDataKeys;
    STREAMING_DATATYPE m_visualSlot;
    std::shared_ptr<logging::Logger> m_logger;
    std::optional<Loaded> m_loaded;

    std::mutex m_mutRequest; // guards the two members below (written by store observers)
    std::string m_strRequested;
    bool m_bReloadPending = false;

    Subscription m_subFilename; // last: released first, so no callback reaches a half-destroyed element
    Subscription m_subForceUpdate;
    std::vector<Subscription> m_subReanalysis;
};

} // namespace norda::exp::streaming
