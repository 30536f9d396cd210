#pragma once
// ImageFileNaming: the file names of saved images and the removal of superseded files, for the
// image write element.
//
// A file name is: folder, "/", prefix, six-digit number, ".", extension ("IR000041.RIX",
// "SR000041.RIX", "TR000041.JPG"). With PlaceTag.SiteInUse the folder is the place-tag subfolder
// PlaceTag.MeasSiteFolder of the image folder, created when missing ("Site image folder {} does not
// exsists ... create it!"; on failure "Could not create place tag image folder: {}!" and the plain
// image folder). Numbers of seven or more digits are written in full.

#include "nordalib/core/dataproxy/DataProxy.h"
#include "nordalib/core/logging/Logger.h"

#include <memory>
#include <string>

namespace norda::exp::streaming {

class ImageFileNaming {
public:
    ImageFileNaming(std::string imageFolder, DataProxy<std::string>* proxy,
                    std::shared_ptr<logging::Logger> logger);

    // "000041" for 41; longer numbers in full.
    static std::string getFormatedFileNumber(unsigned int number);
    // Full path of file `prefix` + number + "." + `extension`, in the place-tag folder if one is in use.
    std::string getFilename(unsigned int number, const std::string& prefix, const std::string& extension);
    // Removes every file of the image folder whose name, before its extension, ends in the number.
    void deleteSupersededFiles(unsigned int counter);

private:
    std::string m_strImageFolder;
    DataProxy<std::string>* m_pDataProxy;
    std::shared_ptr<logging::Logger> m_logger;
};

} // namespace norda::exp::streaming
