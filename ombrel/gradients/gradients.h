// SPDX-License-Identifier: MIT
#pragma once
#include "ombrel/gradients/auto_focus.h"
#include "ombrel/gradients/scene_angle.h"
#include "ombrel/gradients/sobel.h"
#include "ombrel/gradients/sobel_tables.h"
