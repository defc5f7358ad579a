// SPDX-License-Identifier: MIT
#pragma once
#include "ombrel/pixelops/arith.h"
