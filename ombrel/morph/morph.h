// SPDX-License-Identifier: MIT
#pragma once
#include "ombrel/morph/binmorph.h"
#include "ombrel/morph/graymorph.h"
