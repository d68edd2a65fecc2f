// The bodies of the catalogue's image commands (filters, morphology, segmentation, arithmetic,
// geometry, the histogram and the Hough lines), given to the runner when the process service
// starts.
#pragma once
#include <vantry_util/KrvExport.h>

VANTRY_PROCESS_EXPORT void krvRegisterImageCommands();
