// KorvaneAPI: drive the object stores and services of the Korvane image-analysis suite.
// Include this header for the whole interface.
#pragma once
#include <KorvaneAPI/Callbacks.h>
#include <KorvaneAPI/Commands.h>
#include <KorvaneAPI/Core.h>
#include <KorvaneAPI/Filters.h>
#include <KorvaneAPI/KorvaneAPIException.h>
#include <KorvaneAPI/KorvaneAPIService.h>
#include <KorvaneAPI/KorvaneAPIVersion.h>
#include <KorvaneAPI/LookupTables.h>
#include <KorvaneAPI/MeasureGroups.h>
#include <KorvaneAPI/Measures.h>
#include <KorvaneAPI/Segments.h>
#include <KorvaneAPI/Sieves.h>
