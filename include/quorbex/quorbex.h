// Quorbex DataLayer: the umbrella header. Everything under include/quorbex/ is the public interface;
// nothing under src/ is.
#pragma once

#include "quorbex/byref.h"
#include "quorbex/collection.h"
#include "quorbex/errors.h"
#include "quorbex/locale.h"
#include "quorbex/text.h"
#include "quorbex/variant.h"
