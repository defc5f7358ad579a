// SPDX-License-Identifier: MIT
/// \file
/// Everything Ombrel offers, one include.
#pragma once
#include "ombrel/blob/blob.h"
#include "ombrel/corr/corr.h"
#include "ombrel/framework/framework.h"
#include "ombrel/gradients/gradients.h"
#include "ombrel/pixelops/pixelops.h"
#include "ombrel/morph/morph.h"
#include "ombrel/tools/tools.h"

/// Ombrel's whole interface. Each operation is an agent (`ArithAgent`, `BlobAgent`, ...) made by its factory
/// (`ArithFact`, `BlobFact`, ...) on `Buffer`s and a region of interest (`ROI`), run with `Go()`, and read back
/// through its result objects or output images. Nothing throws: failures are statuses and assertion reports.
namespace ombrel {}
