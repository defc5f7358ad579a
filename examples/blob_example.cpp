// SPDX-License-Identifier: MIT
// Blob analysis: finds the bright objects of an image, their holes, and reads each object's features by name.
//   ombrel_example_blob [image]     (without an image: two discs and a plate with a hole, on a dark ground)
#include <cstdio>

#include "example_image.h"

using namespace ombrel;

static std::unique_ptr<Buffer> DrawScene() {
    auto image = std::make_unique<Buffer>(160, 100, EIGHT);
    example::FillRect(*image, 0, 0, 160, 100, 30);
    example::FillDisc(*image, 30, 30, 12, 200);
    example::FillDisc(*image, 30, 70, 8, 220);
    example::FillRect(*image, 80, 30, 130, 70, 180);  // a 50 x 40 plate ...
    example::FillRect(*image, 95, 42, 115, 58, 30);   // ... with a 20 x 16 hole
    return image;
}

int main(int argc, char** argv) {
    auto image = example::LoadOrDraw(argc, argv, DrawScene);
    if (!image) return 1;

    // Object pixels are those from 100 to 255; everything else is background.
    BlobResult result;
    std::unique_ptr<BlobAgent> agent(BlobFact(image.get(), &result, 100, 255));
    if (!agent) return 1;
    // Some features need more than the default bookkeeping: the perimeter needs the boundary lists, the mean
    // grey the grey sums. The filter word is replaced, not added to, so the default bit is kept explicitly.
    agent->SetOptions(BLOB_OPT_FIRST_MOMENTS | BLOB_OPT_SECOND_MOMENTS | BLOB_OPT_BOUNDARY);
    agent->SetFilterFlags(BLOB_FILTER_BORDER_CHILDREN | BLOB_FILTER_GREY);
    agent->SetAreaLimits(20, 1 << 30);  // ignore specks
    if (agent->Go() != 0) return 1;

    int objects = 0, holes = 0;
    for (Blob* blob : result.Blobs()) {
        // With the band above, objects have colour 0 and holes colour -1.
        if (blob->Color() == 0) {
            ++objects;
        } else {
            ++holes;
            continue;
        }
        Rect box;
        blob->BoundingBox(box);
        // The centroid feature follows the library's coordinate rule (x half a pixel left of the mean
        // column); the mean pixel index, as OpenCV and scikit-image report it, is that plus 0.5 in x.
        const double cx = blob->GetFeat(BF_CENTROID_X) + 0.5, cy = blob->GetFeat(BF_CENTROID_Y);
        // The boundary length is the perimeter feature: the chain of run ends, longer than the true outline
        // on curved and slanted edges.
        std::printf(
            "object %d: area %d px, %d hole(s), centroid (%.2f, %.2f), box %d,%d-%d,%d, "
            "perimeter (boundary chain) %.1f px, mean grey %.1f\n",
            blob->Label(), blob->Area(), blob->NumHoles(), cx, cy, box.left, box.top, box.right - 1,
            box.bottom - 1, blob->GetFeat(BF_PERIMETER), blob->GetFeat(BF_MEAN_GREY));
    }
    std::printf("%d objects, %d hole%s\n", objects, holes, holes == 1 ? "" : "s");
    return 0;
}
