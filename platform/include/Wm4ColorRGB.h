// Wild Magic 4 compatible colours: three or four float channels, nominally in [0, 1].
#ifndef WM4COLORRGB_H
#define WM4COLORRGB_H

namespace Wm4 {

class ColorRGB {
public:
    ColorRGB() : m_afTuple{0.0f, 0.0f, 0.0f} {}
    ColorRGB(float fR, float fG, float fB) : m_afTuple{fR, fG, fB} {}

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
    bool operator==(const ColorRGB& c) const {
        return m_afTuple[0] == c[0] && m_afTuple[1] == c[1] && m_afTuple[2] == c[2];
    }
    bool operator!=(const ColorRGB& c) const { return !(*this == c); }

    static const ColorRGB BLACK;
    static const ColorRGB WHITE;

private:
    float m_afTuple[3];
};

inline const ColorRGB ColorRGB::BLACK(0.0f, 0.0f, 0.0f);
inline const ColorRGB ColorRGB::WHITE(1.0f, 1.0f, 1.0f);

}  // namespace Wm4

#endif
