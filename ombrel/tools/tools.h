// SPDX-License-Identifier: MIT
#pragma once
#include "ombrel/tools/break.h"
