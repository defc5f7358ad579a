// SPDX-License-Identifier: MIT
// Blob analysis: segmentation into a tree of regions, their records and features, and the drawing recorder.
#pragma once
#include "ombrel/blob/blob_agent.h"
#include "ombrel/blob/blob_pool.h"
#include "ombrel/blob/blob_result.h"
#include "ombrel/blob/halvard_metadc.h"
