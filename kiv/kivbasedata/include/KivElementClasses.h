// The classes of model elements.
#pragma once

namespace kiv {

// Makes the store's managers find the class of each kind of element. A program that opens models calls it once, before
// the first one.
void KivRegisterElementClasses();

}  // namespace kiv
