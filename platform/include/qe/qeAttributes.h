// Vertex layout: which channels a vertex buffer carries.
#ifndef QE_QEATTRIBUTES_H
#define QE_QEATTRIBUTES_H

namespace qe {

// Only positions and normals are modelled; a channel count of 0 means absent.
// Positions and normals are always three floats when present.
class qeAttributes {
public:
    qeAttributes() = default;

    void SetPositionChannels(int channels) { m_positionChannels = channels; }
    void SetNormalChannels(int channels) { m_normalChannels = channels; }
    int GetPositionChannels() const { return m_positionChannels; }
    int GetNormalChannels() const { return m_normalChannels; }
    bool HasPosition() const { return m_positionChannels > 0; }
    bool HasNormal() const { return m_normalChannels > 0; }
    int GetChannelQuantity() const { return m_positionChannels + m_normalChannels; }

    bool operator==(const qeAttributes& other) const {
        return m_positionChannels == other.m_positionChannels && m_normalChannels == other.m_normalChannels;
    }
    bool operator!=(const qeAttributes& other) const { return !(*this == other); }

private:
    int m_positionChannels = 0;
    int m_normalChannels = 0;
};

}  // namespace qe

#endif
