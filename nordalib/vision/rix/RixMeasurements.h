#pragma once
// RixMeasurements: the measurement results a saved image carries, computed anew from its
// radiometric image once that changed (a re-analysis), as the min/max element computes them live
// (MeasurementResults, MeasurementStatistics).
//
// refresh() updates the generic entries: every "....MeasPoint" (the hot and cold spot move to the
// new extremes, every other point keeps its position), every "....MeasArea" over its rectangle, and
// IrImage.Min/Max/Med; the min/max record and the UUID follow the new pixels. Values are marked
// against the borders of the range the image was taken in (borders()); a result that was a
// humidity (taken in humidity mode) is computed again from the image's Environment.Temperature and
// Environment.Humidity. Results shaped by parameters of their own (an entry whose
// "....LocalParameters" is set) and the delta-T difference are removed: their stored values no
// longer hold, and a wrong number is worse than none.

#include "nordalib/core/datatypes/MeasRangeBorders.h"
#include "nordalib/vision/rix/Rix.h"

namespace norda::vision {

class RixMeasurements {
public:
    // From the image's ActiveMeasRange.{Tolerance,Display}{Top,Bottom} entries; borders marked
    // unknown (values pass unmarked) when it does not carry all four.
    static exp::MeasRangeBorders borders(const Rix& rix);
    static void refresh(Rix& rix);
};

} // namespace norda::vision
