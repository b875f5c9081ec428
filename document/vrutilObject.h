#pragma once
// Document objects addressed by name: the triple of collection, description and object that the
// host's scripts use, and attribute access through it. Main thread only.

#include <string>

class VrObject;

namespace vrutil {

/// Finds an object by name:
///  - the collection of that name ("Vorn collection not found. [name]" when missing);
///  - an empty description gives the collection;
///  - the collection's description of that name ("Vorn description not found. [name]");
///  - an empty object gives the description;
///  - the description's object of that module word, then the active primitive's FX module of
///    that name, then the collection when the object names it ("Object not found: [name]").
/// Null, with that one Error, on failure.
VrObject* getObject(const std::string& collection, const std::string& description,
                    const std::string& object);

/// getObject without messages.
VrObject* findObject(const std::string& collection, const std::string& description,
                     const std::string& object);

/// The attribute's text; empty when the object has no such attribute. The pseudo-attributes
/// "Multithreading", "MultithreadingPatch" and "MultithreadingCollision" answer "1" or "0"
/// from VrTaskManager, whatever the names. A missing object is the Error
/// "Call to getAttr failed.".
std::string getAttr(const std::string& attribute, const std::string& collection,
                    const std::string& description, const std::string& object);

/// Sets an attribute the object already has, through its virtual setAttr; false when it has no
/// such attribute. The pseudo-attributes take an integer text, 1 for on and anything else for
/// off: "Multithreading" sets general, patch and collision multithreading together. A missing
/// object is the Error "Call to setAttr failed.".
bool setAttr(const std::string& attribute, const std::string& value,
             const std::string& collection, const std::string& description,
             const std::string& object);

/// Links a texture to an attribute the object has; false when it has no such attribute. A
/// missing object is the Error "Call to setTexture failed.".
bool setTexture(const std::string& attribute, const std::string& value,
                const std::string& collection, const std::string& description,
                const std::string& object);

/// The texture linked to the attribute; empty when there is none. A missing object is the Error
/// "Call to getTexture failed.".
std::string getTexture(const std::string& attribute, const std::string& collection,
                       const std::string& description, const std::string& object);

/// The name of the first collection, in dictionary order, that holds a description of this
/// name. None: the Error "Could not find Vorn collection: [name]" and an empty string.
std::string palette(const std::string& descriptionName);

}  // namespace vrutil
