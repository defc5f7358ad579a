// SPDX-License-Identifier: MIT
// Everything Ombrel offers, one include.
#pragma once
#include "ombrel/blob/blob.h"
#include "ombrel/corr/corr.h"
#include "ombrel/framework/framework.h"
#include "ombrel/gradients/gradients.h"
#include "ombrel/pixelops/pixelops.h"
#include "ombrel/morph/morph.h"
#include "ombrel/tools/tools.h"
