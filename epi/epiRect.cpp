#include "epi/epiRect.h"

#include <algorithm>

void epiRect::get(int32_t out[4]) const
{
    out[0] = left_;
    out[1] = top_;
    out[2] = right_;
    out[3] = bottom_;
}

void epiRect::set(const int32_t in[4])
{
    set(in[0], in[1], in[2], in[3]);
}

void epiRect::set(int32_t left, int32_t top, int32_t right, int32_t bottom)
{
    left_ = left;
    top_ = top;
    right_ = right;
    bottom_ = bottom;
}

float epiRect::aspect() const
{
    return float(widthF() / heightF());
}

void epiRect::setSize(int32_t width, int32_t height)
{
    right_ = left_ + width;
    bottom_ = top_ + height;
}

void epiRect::moveTo(int32_t x, int32_t y)
{
    const int32_t w = width();
    const int32_t h = height();
    left_ = x;
    top_ = y;
    setSize(w, h);
}

void epiRect::offset(int32_t dx, int32_t dy)
{
    left_ += dx;
    right_ += dx;
    top_ += dy;
    bottom_ += dy;
}

void epiRect::inset(int32_t d)
{
    inset(d, d, d, d);
}

void epiRect::inset(int32_t dx, int32_t dy)
{
    inset(dx, dy, dx, dy);
}

void epiRect::inset(int32_t left, int32_t top, int32_t right, int32_t bottom)
{
    left_ += left;
    top_ += top;
    right_ -= right;
    bottom_ -= bottom;
}

void epiRect::moveToOrigin()
{
    moveTo(0, 0);
}

int32_t epiRect::centerX() const
{
    return (right_ - left_) / 2 + left_;
}

int32_t epiRect::centerY() const
{
    return (bottom_ - top_) / 2 + top_;
}

epiPoint epiRect::corner(int32_t n) const
{
    switch (n)
    {
    case 1:
        return epiPoint(right_, top_);
    case 2:
        return epiPoint(right_, bottom_);
    case 3:
        return epiPoint(left_, bottom_);
    case 4:
        return epiPoint(centerX(), top_);
    case 5:
        return epiPoint(right_, centerY());
    case 6:
        return epiPoint(centerX(), bottom_);
    case 7:
        return epiPoint(left_, centerY());
    case 8:
        return epiPoint(centerX(), centerY());
    default:
        return epiPoint(left_, top_);
    }
}

bool epiRect::isEmpty() const
{
    return left_ == right_ && top_ == bottom_;
}

bool epiRect::isValid() const
{
    return right_ >= left_ && bottom_ >= top_;
}

void epiRect::clear()
{
    set(0, 0, 0, 0);
}

bool epiRect::intersect(const epiRect& other)
{
    if (!intersects(other))
    {
        clear();
        return false;
    }
    set(std::max(left_, other.left_), std::max(top_, other.top_), std::min(right_, other.right_),
        std::min(bottom_, other.bottom_));
    return true;
}

void epiRect::unite(const epiRect& other)
{
    if (other.isEmpty())
        return;
    if (isEmpty())
    {
        set(other.left_, other.top_, other.right_, other.bottom_);
        return;
    }
    set(std::min(left_, other.left_), std::min(top_, other.top_), std::max(right_, other.right_),
        std::max(bottom_, other.bottom_));
}

bool epiRect::containsRect(const epiRect& other) const
{
    return other.left_ >= left_ && other.top_ >= top_ && other.right_ <= right_ && other.bottom_ <= bottom_;
}

bool epiRect::intersects(const epiRect& other) const
{
    if (!isValid() || !other.isValid())
        return false;
    return left_ < other.right_ && other.left_ < right_ && top_ < other.bottom_ && other.top_ < bottom_;
}

bool epiRect::containsPoint(int16_t x, int16_t y) const
{
    return containsPoint(epiPoint(x, y));
}

bool epiRect::containsPoint(const epiPoint& point) const
{
    // Inclusive on all four sides, unlike width and height: a click on the right or bottom edge
    // still belongs to the object.
    return point.x_ >= left_ && point.x_ <= right_ && point.y_ >= top_ && point.y_ <= bottom_;
}

epiPoint epiRect::size() const
{
    return epiPoint(width(), height());
}

bool epiRect::equals(int32_t left, int32_t top, int32_t right, int32_t bottom) const
{
    return left_ == left && top_ == top && right_ == right && bottom_ == bottom;
}

bool epiRect::clipPair(epiRect& source, epiRect& dest) const
{
    if (dest.left_ < left_)
    {
        source.left_ += left_ - dest.left_;
        dest.left_ = left_;
    }
    if (dest.right_ > right_)
    {
        source.right_ -= dest.right_ - right_;
        dest.right_ = right_;
    }
    if (dest.top_ < top_)
    {
        source.top_ += top_ - dest.top_;
        dest.top_ = top_;
    }
    if (dest.bottom_ > bottom_)
    {
        source.bottom_ -= dest.bottom_ - bottom_;
        dest.bottom_ = bottom_;
    }
    return dest.right_ > dest.left_ && dest.bottom_ > dest.top_;
}

bool epiRect::clipPair(const epiRect& sourceIn, const epiRect& destIn, epiRect& sourceOut,
                       epiRect& destOut) const
{
    sourceOut.set(sourceIn.left_, sourceIn.top_, sourceIn.right_, sourceIn.bottom_);
    destOut.set(destIn.left_, destIn.top_, destIn.right_, destIn.bottom_);
    return clipPair(sourceOut, destOut);
}
