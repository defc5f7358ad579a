// SPDX-License-Identifier: MIT
#pragma once
#include "ombrel/corr/corr_match.h"
#include "ombrel/corr/corr_template.h"
