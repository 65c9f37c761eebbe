#pragma once

#include "epi/epiObject.h"

#include <cstdint>

/** A point in pixels. */
class epiPoint : public epiObject
{
public:
    epiPoint() = default;
    epiPoint(int32_t x, int32_t y) : x_(x), y_(y) {}

    bool operator==(const epiPoint& other) const { return x_ == other.x_ && y_ == other.y_; }

    int32_t x_ = 0;
    int32_t y_ = 0;
};

/**
 * A rectangle in pixels: left, top, right, bottom. Width is right - left and height bottom - top,
 * so right and bottom lie outside for sizes; the point tests, though, count all four sides as
 * inside (see containsPoint()).
 */
class epiRect : public epiObject
{
public:
    epiRect() = default;
    epiRect(int32_t left, int32_t top, int32_t right, int32_t bottom)
        : left_(left), top_(top), right_(right), bottom_(bottom)
    {
    }

    bool operator==(const epiRect& other) const
    {
        return equals(other.left_, other.top_, other.right_, other.bottom_);
    }

    /** The four values into `out`: left, top, right, bottom. */
    void get(int32_t out[4]) const;
    /** Takes the four values from `in`: left, top, right, bottom. */
    void set(const int32_t in[4]);
    /** Takes the four values. */
    void set(int32_t left, int32_t top, int32_t right, int32_t bottom);

    int32_t width() const { return right_ - left_; }
    int32_t height() const { return bottom_ - top_; }
    double widthF() const { return double(right_) - double(left_); }
    double heightF() const { return double(bottom_) - double(top_); }
    /** Width over height. */
    float aspect() const;

    /** Keeps left and top. */
    void setSize(int32_t width, int32_t height);
    /** Puts left and top at (x, y), keeping the size. */
    void moveTo(int32_t x, int32_t y);
    void offset(int32_t dx, int32_t dy);
    /** Grows left and top and shrinks right and bottom by `d`. */
    void inset(int32_t d);
    void inset(int32_t dx, int32_t dy);
    void inset(int32_t left, int32_t top, int32_t right, int32_t bottom);
    /** Puts left and top at 0, keeping the size. */
    void moveToOrigin();
    /** (right - left) / 2 + left, with integer division. */
    int32_t centerX() const;
    /** (bottom - top) / 2 + top, with integer division. */
    int32_t centerY() const;
    /**
     * One of nine points: 0 top left, 1 top right, 2 bottom right, 3 bottom left, 4 top centre,
     * 5 right centre, 6 bottom centre, 7 left centre, 8 centre; anything else gives the top left.
     */
    epiPoint corner(int32_t n) const;

    /** left == right and top == bottom: a line of zero width but some height is not empty. */
    bool isEmpty() const;
    /** right >= left and bottom >= top. */
    bool isValid() const;
    /** All four values become 0. */
    void clear();
    /** Becomes the common part with `other`; zero when they don't intersect. @return they intersected */
    bool intersect(const epiRect& other);
    /** Becomes the smallest rectangle holding both; an empty side contributes nothing. */
    void unite(const epiRect& other);
    /** `other` lies inside, edges included. */
    bool containsRect(const epiRect& other) const;
    /** They share pixels: false when either is invalid, and rectangles that only touch don't. */
    bool intersects(const epiRect& other) const;
    /** All four sides inside. */
    bool containsPoint(int16_t x, int16_t y) const;
    /** All four sides inside. */
    bool containsPoint(const epiPoint& point) const;
    /** Width and height as a point. */
    epiPoint size() const;
    bool equals(int32_t left, int32_t top, int32_t right, int32_t bottom) const;

    /**
     * Clips a blit to this rectangle: each side of `dest` outside it is pulled in, and `source`'s
     * matching side moves by the same amount, so that both stay aligned pixel for pixel. Works on
     * left, right, top, bottom in that order. @return something is left to draw
     */
    bool clipPair(epiRect& source, epiRect& dest) const;
    /** Copies the inputs into the outputs, then clips those. */
    bool clipPair(const epiRect& sourceIn, const epiRect& destIn, epiRect& sourceOut, epiRect& destOut) const;

    int32_t left_ = 0;
    int32_t top_ = 0;
    int32_t right_ = 0;
    int32_t bottom_ = 0;
};
