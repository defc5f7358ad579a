// SPDX-License-Identifier: MIT
// The structuring element of grey morphology.
#include <algorithm>
#include <new>

#include "ombrel/framework/hal.h"
#include "ombrel/framework/object_stream.h"
#include "ombrel/morph/graymorph.h"

namespace ombrel {

namespace {

bool SizeAccepted(int width, int height) {
    return width >= 1 && height >= 1 && width <= kGrayMorphMaxSide && height <= kGrayMorphMaxSide &&
           int64_t{width} * height <= kGrayMorphMaxCells;
}

}  // namespace

GrayMorphElem::GrayMorphElem() : _hotX(1), _hotY(1), _width(3), _height(3), _weights(9, 255) {
    Changed();
}

GrayMorphElem::GrayMorphElem(int hotX, int hotY, int width, int height, const unsigned char* weights)
    : _hotX(hotX), _hotY(hotY) {
    if (weights != nullptr && SizeAccepted(width, height) && Resize(width, height))
        std::copy(weights, weights + _weights.size(), _weights.begin());
    ClampHotSpot();
    Changed();
}

GrayMorphElem::GrayMorphElem(int hotX, int hotY, int width, int height, const char* pattern)
    : _hotX(hotX), _hotY(hotY) {
    if (pattern != nullptr && SizeAccepted(width, height) && Resize(width, height)) {
        size_t read = 0;
        for (const char* c = pattern; *c != '\0' && read < _weights.size(); ++c) {
            if (*c == ',' || *c == ' ') continue;
            _weights[read++] = *c == '0' ? 0 : 255;
        }
        if (read < _weights.size()) Resize(0, 0);  // too short a pattern describes no element
    }
    ClampHotSpot();
    Changed();
}

GrayMorphElem::GrayMorphElem(const GrayMorphElem* from, int hotX, int hotY, int width, int height)
    : _hotX(hotX), _hotY(hotY) {
    if (from != nullptr && SizeAccepted(width, height) && Resize(width, height)) {
        for (int y = 0; y < std::min(height, from->_height); ++y)
            for (int x = 0; x < std::min(width, from->_width); ++x)
                _weights[static_cast<size_t>(y) * width + x] =
                    from->_weights[static_cast<size_t>(y) * from->_width + x];
    }
    ClampHotSpot();
    Changed();
}

// Resizes keeping the common cells and giving new ones 255; (0, 0) empties the element.
bool GrayMorphElem::Resize(int width, int height) {
    try {
        std::vector<unsigned char> weights(static_cast<size_t>(width) * static_cast<size_t>(height), 255);
        for (int y = 0; y < std::min(height, _height); ++y)
            for (int x = 0; x < std::min(width, _width); ++x)
                weights[static_cast<size_t>(y) * width + x] = _weights[static_cast<size_t>(y) * _width + x];
        _weights.swap(weights);
    } catch (const std::bad_alloc&) {
        return false;
    }
    _width = width;
    _height = height;
    return true;
}

void GrayMorphElem::ClampHotSpot() {
    _hotX = std::clamp(_hotX, 0, std::max(_width - 1, 0));
    _hotY = std::clamp(_hotY, 0, std::max(_height - 1, 0));
}

void GrayMorphElem::Changed() {
    _tiles.clear();
    const int across = (_width + 2) / 3, down = (_height + 2) / 3;
    try {
        _tiles.assign(static_cast<size_t>(across) * down, 0);
    } catch (const std::bad_alloc&) {
        _tiles.clear();
    }
    if (_tiles.size() == static_cast<size_t>(across) * down) {
        for (int y = 0; y < _height; ++y)
            for (int x = 0; x < _width; ++x)
                if (_weights[static_cast<size_t>(y) * _width + x] != 0)
                    _tiles[static_cast<size_t>(y / 3) * across + x / 3] |=
                        static_cast<uint16_t>(1u << ((y % 3) * 3 + 2 - x % 3));
    }
    _updated = true;
}

size_t GrayMorphElem::SizeOf() const {
    return sizeof(*this) + _weights.size() + _tiles.size() * sizeof(uint16_t);
}

bool GrayMorphElem::SetElementWidth(int width) {
    return SetElementDims(width, _height);
}

bool GrayMorphElem::SetElementHeight(int height) {
    return SetElementDims(_width, height);
}

bool GrayMorphElem::SetElementDims(int width, int height) {
    if (!SizeAccepted(width, height) || !Resize(width, height)) return false;
    ClampHotSpot();
    Changed();
    return true;
}

bool GrayMorphElem::SetElementHotSpot(int x, int y) {
    if (x < 0 || y < 0 || x >= _width || y >= _height) return false;
    _hotX = x;
    _hotY = y;
    _updated = true;
    return true;
}

bool GrayMorphElem::SetElementWeight(int index, unsigned char weight) {
    if (index < 0 || static_cast<size_t>(index) >= _weights.size()) return false;
    _weights[static_cast<size_t>(index)] = weight;
    const int x = index % _width, y = index / _width, across = (_width + 2) / 3;
    const size_t tile = static_cast<size_t>(y / 3) * across + x / 3;
    const auto bit = static_cast<uint16_t>(1u << ((y % 3) * 3 + 2 - x % 3));
    if (tile < _tiles.size())
        _tiles[tile] = static_cast<uint16_t>(weight != 0 ? _tiles[tile] | bit : _tiles[tile] & ~bit);
    _updated = true;
    return true;
}

bool GrayMorphElem::SetElementWeight(int x, int y, unsigned char weight) {
    if (x < 0 || y < 0 || x >= _width || y >= _height) return false;
    return SetElementWeight(y * _width + x, weight);
}

unsigned char GrayMorphElem::GetElementWeight(int index) const {
    if (index < 0 || static_cast<size_t>(index) >= _weights.size()) return 0;
    return _weights[static_cast<size_t>(index)];
}

unsigned char GrayMorphElem::GetElementWeight(int x, int y) const {
    if (x < 0 || y < 0 || x >= _width || y >= _height) return 0;
    return GetElementWeight(y * _width + x);
}

int GrayMorphElem::Members() const {
    return static_cast<int>(_weights.size() -
                            static_cast<size_t>(std::count(_weights.begin(), _weights.end(), 0)));
}

unsigned GrayMorphElem::GetMaskByIndex(int index) const {
    if (index < 0 || index >= GetMaskSize()) return 0;
    return _tiles[static_cast<size_t>(index)];
}

// ---- Persistence
// ---------------------------------------------------------------------------------------------

const os_class GrayMorphElem::kStreamClass =
    os_class::Make<GrayMorphElem, &GrayMorphElem::WriteStream, &GrayMorphElem::ReadStream>(
        "(GrayMorphElem*)", static_cast<uint32_t>(RCSStringToNumber("$Revision: 1.1 $")));

const os_class& StreamClassOf(const GrayMorphElem*) {
    return GrayMorphElem::kStreamClass;
}

void GrayMorphElem::WriteStream(os_bstream& s, const GrayMorphElem& elem) {
    s.WriteInt(elem._hotX);
    s.WriteInt(elem._hotY);
    s.WriteInt(elem._width);
    s.WriteInt(elem._height);
    s.WriteChunk(elem._weights.data(), static_cast<uint32_t>(elem._weights.size()));
}

bool GrayMorphElem::ReadStream(os_bstream& s, GrayMorphElem& elem, uint32_t version) {
    if (version != kStreamClass.Version()) {
        OMBREL_ASSERT_HERE("lsgraymorph", false, "0");
        return true;
    }
    int32_t hotX, hotY, width, height;
    if (!s.ReadInt(hotX) || !s.ReadInt(hotY) || !s.ReadInt(width) || !s.ReadInt(height)) return false;
    const bool empty = width == 0 && height == 0;
    if (!empty && (!SizeAccepted(width, height) || hotX < 0 || hotX >= width || hotY < 0 || hotY >= height))
        return false;
    const uint32_t cells = empty ? 0 : static_cast<uint32_t>(width) * static_cast<uint32_t>(height);
    std::vector<unsigned char> weights;
    if (!s.ReadChunk(weights, cells) || weights.size() != cells) return false;
    if (empty && (hotX != 0 || hotY != 0)) return false;
    elem._hotX = hotX;
    elem._hotY = hotY;
    elem._width = width;
    elem._height = height;
    elem._weights.swap(weights);
    elem.Changed();
    return true;
}

}  // namespace ombrel
