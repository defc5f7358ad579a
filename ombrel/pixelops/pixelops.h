// SPDX-License-Identifier: MIT
#pragma once
#include "ombrel/pixelops/arith.h"
#include "ombrel/pixelops/decimate.h"
#include "ombrel/pixelops/histogram.h"
#include "ombrel/pixelops/grey_statistics.h"
#include "ombrel/pixelops/mask.h"
#include "ombrel/pixelops/project.h"
#include "ombrel/pixelops/frame_average.h"
#include "ombrel/pixelops/transpose.h"
#include "ombrel/pixelops/conv.h"
