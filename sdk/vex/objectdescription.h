// Neutral object descriptions: one host object described as a data dictionary
// keyed by attribute id strings, the animation values it carries, and the
// object classes and factory that turn a description into a host object.
// The exchange module defines these (its `lights_impl` unit declares the data
// types, the interfaces, the class registry and the factory); importers and
// other modules fill descriptions and call the factory.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "vex/data.h"
#include "vex/error.h"
#include "vex/id.h"
#include "vex/scene.h"

namespace vex::tessel {

/// A point in time of an animation track, in seconds from the start of the scene.
struct TesselTime {
  static constexpr std::string_view kDataTypeId = "net.kelvo.tessel.datatype.tesseltime";
  static constexpr std::string_view kTypeName = "kelvo::tessel::TesselTime";
  double seconds = 0;
  bool operator==(const TesselTime&) const = default;
};

/// One key of an animation track: its time and the value of one vector component.
struct TesselKeyFrame {
  static constexpr std::string_view kDataTypeId = "net.kelvo.tessel.datatype.tesselkeyframe";
  static constexpr std::string_view kTypeName = "kelvo::tessel::TesselKeyFrame";
  TesselTime time;
  double value = 0;
  bool operator==(const TesselKeyFrame&) const = default;
};

/// The description of one host object: its attributes by key.
struct VEXObjectDescription {
  static constexpr std::string_view kDataTypeId = "net.kelvo.tessel.datatype.vexobjectdescription";
  static constexpr std::string_view kTypeName = "kelvo::tessel::VEXObjectDescription";
  DataDictionary data;
};

/// Attribute keys common to every object class, and the keys of an animation take record.
namespace key {
inline constexpr std::string_view kObjectType = "net.kelvo.tessel.presenterdata.basic.objecttype";  ///< Id
inline constexpr std::string_view kName = "net.kelvo.tessel.presenterdata.basic.name";              ///< string
inline constexpr std::string_view kPosition = "net.kelvo.tessel.presenterdata.basic.position";      ///< Vector3d
inline constexpr std::string_view kRotation = "net.kelvo.tessel.presenterdata.basic.rotation";      ///< Vector3d
inline constexpr std::string_view kScale = "net.kelvo.tessel.presenterdata.basic.scale";            ///< Vector3d
inline constexpr std::string_view kMatrixIsGlobal = "net.kelvo.tessel.presenterdata.basic.matrixisglobal";  ///< bool
/// DataArray of take records (DataDictionary).
inline constexpr std::string_view kAnimation = "net.kelvo.tessel.presenterdata.basic.animation";

inline constexpr std::string_view kTakePointer = "net.kelvo.tessel.take.takepointer";  ///< the host take (string)
inline constexpr std::string_view kTakeName = "net.kelvo.tessel.take.name";            ///< string
/// bool, default false: the take's keys replace every key the object's track had before.
inline constexpr std::string_view kTakeOverride = "net.kelvo.tessel.take.override";
/// bool, default true: false switches the take's animation off (its tracks are not applied).
inline constexpr std::string_view kTakeAnimation = "net.kelvo.tessel.take.animation";
/// DataDictionary: the animated attribute's key (position, rotation or scale) -> track record.
inline constexpr std::string_view kTakeTracks = "net.kelvo.tessel.take.tracks";
/// The key lists of a track record: DataArray of TesselKeyFrame, one list per vector component.
inline constexpr std::string_view kTrackX = "net.kelvo.tessel.take.track_x";
inline constexpr std::string_view kTrackY = "net.kelvo.tessel.take.track_y";
inline constexpr std::string_view kTrackZ = "net.kelvo.tessel.take.track_z";

/// Every light attribute key is this prefix followed by the attribute name.
inline constexpr std::string_view kLightPrefix = "net.kelvo.tessel.presenterdata.light.";
}  // namespace key

/// Object type ids (values of key::kObjectType) and the object ids of the two kinds of object.
inline constexpr std::string_view kObjectTypeLight = "light";
inline constexpr std::string_view kBaseObjectId = "net.kelvo.tessel.objects.vex.base";
inline constexpr std::string_view kLightObjectId = "net.kelvo.tessel.objects.vex.light";

/// The Corvane renderer's node space: its object classes serve every renderer without its own.
inline constexpr std::string_view kCorvaneNodeSpace = "com.corvane3d.corvane4vex.class.nodespace";

/// `ObjectClassRegistry`: the component registry of object classes. Each entry's record is an
/// ObjectClassKey; the factory takes the first entry whose key matches.
inline constexpr std::string_view kObjectClassRegistry = "net.kelvo.tessel.registry.objectclasses";

/// The key of an ObjectClassRegistry entry: the renderer's node space and the object type.
struct ObjectClassKey {
  static constexpr std::string_view kDataTypeId = "net.kelvo.tessel.datatype.objectclasskey";
  Id nodeSpace;
  Id objectType;
  bool operator==(const ObjectClassKey&) const = default;
};

/// Creation flags of the factory and the object classes.
inline constexpr std::int32_t kCreateDefault = 0;
inline constexpr std::int32_t kCreateWithoutAnimation = 1;  ///< the animation attribute is not applied

/// The result slot of an object class: the host object being built.
struct ObjectSlot {
  SceneObjectRef object;
};

/// An object class: builds a host object from a description. Classes form a chain (a renderer's
/// light class on top of the light class on top of the base class); each operation ends by
/// calling the same operation of the next class in the chain.
class IVexObjectClass {
 public:
  static constexpr std::string_view kInterfaceId = "net.kelvo.tessel.interface.vexobjectclass";
  virtual ~IVexObjectClass() = default;
  /// Creates the host object into `slot` (when the slot is empty) and fills it from the
  /// description. Stops at the first error; what was written stays written.
  virtual Result<void> Create(ObjectSlot& slot, const VEXObjectDescription& description, std::int32_t flags) = 0;
  /// Finishes the object after creation. Fails when the slot holds no object.
  virtual Result<void> Finish(ObjectSlot& slot) = 0;
};

/// The object factory: picks the class for a node space and an object type and builds the object.
class IVexObjectFactory {
 public:
  static constexpr std::string_view kInterfaceId = "net.kelvo.tessel.interface.vexobjectfactory";
  static constexpr std::string_view kClassId = "net.kelvo.tessel.factory.vexobjectfromfactory";
  virtual ~IVexObjectFactory() = default;
  /// A new host object, not inserted into any document. Fails (and logs one diagnostic line) when
  /// the description has no object type; fails when no class is registered for the node space or
  /// for the Corvane node space; otherwise passes on the class's error.
  virtual Result<SceneObjectRef> Create(std::string_view nodeSpaceId, const VEXObjectDescription& description,
                                        std::int32_t flags) = 0;
};

}  // namespace vex::tessel
