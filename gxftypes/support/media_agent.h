#pragma once

namespace Zorvan {

enum class MediaAgentPropId : unsigned;

/// Properties of a media agent of the surrounding system; opaque here.
template <typename PropId> class IGenericProperties {
  public:
    virtual ~IGenericProperties() = default;
};

/// Where a buffer gets its storage from. Never without properties: the shared null agent stands in.
class MediaAgent {
  public:
    using Properties = IGenericProperties<MediaAgentPropId>;

    static Properties const s_nullAgent;

    MediaAgent(Properties const* properties)
        : m_properties(properties != nullptr ? properties : &s_nullAgent), m_given(properties) {}

    /// Never null.
    Properties const* properties() const { return m_properties; }
    /// What the constructor was given: null without a real agent.
    Properties const* given() const { return m_given; }

  private:
    Properties const* m_properties;
    Properties const* m_given;
};

} // namespace Zorvan
