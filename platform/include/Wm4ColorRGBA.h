// Wild Magic 4 compatible colour with alpha.
#ifndef WM4COLORRGBA_H
#define WM4COLORRGBA_H

namespace Wm4 {

class ColorRGBA {
public:
    ColorRGBA() : m_afTuple{0.0f, 0.0f, 0.0f, 0.0f} {}
    ColorRGBA(float fR, float fG, float fB, float fA) : m_afTuple{fR, fG, fB, fA} {}

    operator const float*() const { return m_afTuple; }
    operator float*() { return m_afTuple; }
    float operator[](int i) const { return m_afTuple[i]; }
    float& operator[](int i) { return m_afTuple[i]; }
    float R() const { return m_afTuple[0]; }
    float& R() { return m_afTuple[0]; }
    float G() const { return m_afTuple[1]; }
    float& G() { return m_afTuple[1]; }
    float B() const { return m_afTuple[2]; }
    float& B() { return m_afTuple[2]; }
    float A() const { return m_afTuple[3]; }
    float& A() { return m_afTuple[3]; }
    bool operator==(const ColorRGBA& c) const {
        return m_afTuple[0] == c[0] && m_afTuple[1] == c[1] && m_afTuple[2] == c[2] && m_afTuple[3] == c[3];
    }
    bool operator!=(const ColorRGBA& c) const { return !(*this == c); }

    static const ColorRGBA BLACK;
    static const ColorRGBA WHITE;

private:
    float m_afTuple[4];
};

inline const ColorRGBA ColorRGBA::BLACK(0.0f, 0.0f, 0.0f, 1.0f);
inline const ColorRGBA ColorRGBA::WHITE(1.0f, 1.0f, 1.0f, 1.0f);

}  // namespace Wm4

#endif
