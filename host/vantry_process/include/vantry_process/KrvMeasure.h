// Measuring the objects of a label image with a measure group into a named result table, the
// delivery of result tables to the targets the client registered, and the size classes a sieve
// makes of a result table's column.
#pragma once
#include <functional>
#include <string>

#include <vantry_access_korlib/KrvMeasureObjects.h>
#include <vantry_data/KrvImage.h>
#include <vantry_data/KrvResultTable.h>
#include <vantry_util/KrvExport.h>

class COrlanSpreadsheet;
namespace data {
class DictionaryPrivate;
}

// The result table of measuring `labels` (and `grey`, or null) with the measure group `group`:
// the column "label" (the objects' labels, increasing), then one column per measure of the group
// in the group's order, a name the group holds twice giving one column (IntensityPercentile one
// per percentile). User measures are computed from their formulas or functions, a measure that
// a formula names first. Throws KrvBaseException for an unknown group, a name that is no measure,
// user measures that refer to each other in a cycle, or what krvMeasureObjects refuses.
VANTRY_PROCESS_EXPORT KrvResultTable krvMeasureWithGroup(const KrvVoxelView& labels, const KrvVoxelView* grey,
                                                         const std::string& group, const KrvMeasureStep& step = {});

// krvMeasureWithGroup, then the table stored under `result` and delivered. Nothing is stored when
// it throws.
VANTRY_PROCESS_EXPORT void krvMeasureIntoTable(const KrvVoxelView& labels, const KrvVoxelView* grey,
                                               const std::string& group, const std::string& result,
                                               const KrvMeasureStep& step = {});

// The view of a label image to measure: an int32 image as it is, a uint8 or uint16 one through an
// int32 copy made in `widened` (label files are often 8 or 16 bits); other types as they are, for
// the measurement to refuse.
VANTRY_PROCESS_EXPORT KrvVoxelView krvLabelView(const KrvImage& labels, KrvImage& widened);

// The client's targets for result tables (either may be null; both null: none), and what it is
// told once a delivery has filled them (`delivered(name)`, on the delivering thread; may be
// empty): a client that shows the tables reads its targets then. The suite keeps the pointers,
// the client the objects, until it registers others.
VANTRY_PROCESS_EXPORT void krvSetResultTargets(COrlanSpreadsheet* spreadsheet, data::DictionaryPrivate* objectModel,
                                               std::function<void(const std::string&)> delivered = {});

// Hands the result table `name` to the registered targets through the proxy service: message
// 4301 with the spreadsheet, 4306 with the object model (each when registered), then 4303 with
// the name, then the client's `delivered`. Sends nothing when no target is registered: the table
// stays in the suite.
VANTRY_PROCESS_EXPORT void krvDeliverResultTable(const std::string& name);

// The size classes of the objects of result table `table` by its column `measure` and the
// increasing limits of the sieve `sieve`: class 0 below the first limit, class k from limit k up
// to (not including) limit k + 1. Stores `result` (label, the measure, Class) and `result`
// + "Counts" (Class, From, To, Count; From and To the class's limits, the open ends -inf and
// inf), and delivers both. Throws KrvBaseException for an unknown table, column or sieve, a
// sieve without values, or limits that do not increase.
VANTRY_PROCESS_EXPORT void krvSieveClasses(const std::string& table, const std::string& measure,
                                           const std::string& sieve, const std::string& result);
