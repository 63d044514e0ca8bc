// Quorbex DataLayer: the umbrella header. Everything under include/quorbex/ is the public interface;
// nothing under src/ is.
#pragma once

#include "quorbex/byref.h"
#include "quorbex/collection.h"
#include "quorbex/errors.h"
#include "quorbex/host.h"
#include "quorbex/locale.h"
#include "quorbex/text.h"
#include "quorbex/variant.h"
#include "quorbex/engine.h"
#include "quorbex/clsOfflineField.h"
#include "quorbex/clsOfflineRecord.h"
#include "quorbex/clsOfflineRecordset.h"
#include "quorbex/DataLayer.h"
#include "quorbex/clsAnalyzer.h"
#include "quorbex/clsExtractManager.h"
#include "quorbex/clsExtract.h"
#include "quorbex/clsFilter.h"
#include "quorbex/ListControl.h"
#include "quorbex/Formula.h"
#include "quorbex/clsPart.h"
#include "quorbex/frmProgress.h"
