// SPDX-License-Identifier: MIT
#pragma once
#include "ombrel/framework/agent.h"
#include "ombrel/framework/angles.h"
#include "ombrel/framework/buffer.h"
#include "ombrel/framework/event_logger.h"
#include "ombrel/framework/geometry.h"
#include "ombrel/framework/halvard_metadc.h"
#include "ombrel/framework/hal.h"
#include "ombrel/framework/isa.h"
#include "ombrel/framework/object_stream.h"
#include "ombrel/framework/roi.h"
#include "ombrel/framework/startup.h"
