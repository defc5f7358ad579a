// SPDX-License-Identifier: MIT
// Blob analysis: segmentation into a tree of regions, their records and features; drawing them goes through
// the framework's drawing recorder.
#pragma once
#include "ombrel/blob/blob_agent.h"
#include "ombrel/blob/blob_feature_set.h"
#include "ombrel/blob/blob_pool.h"
#include "ombrel/blob/blob_record.h"
#include "ombrel/blob/blob_result.h"
#include "ombrel/blob/blob_shape.h"
#include "ombrel/framework/halvard_metadc.h"
