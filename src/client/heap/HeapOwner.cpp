#include "client/heap/HeapOwner.h"

#include "client/console/Text.h"

namespace vdk {

namespace {

const int MostSteps = 12;

bool isPassed(const HeapModel& model, int row) {
    const int type = model.isClass(row) ? -1 : model.classOf(row);
    return type >= 0 && (model.classes[size_t(type)].elementType != 0 ||
                         startsWith(model.classes[size_t(type)].name, "java.util."));
}

} // namespace

HeapOwner HeapOwner::of(const HeapSession& session, int row) {
    const HeapModel& model = session.model();
    const ObjectStorage& storage = session.storage();
    const RefTable& referrers = session.referrers();
    HeapOwner owner;
    for (int step = 0; step < MostSteps && referrers.getCount(row) > 0; step++) {
        owner.row = referrers.getRef(row, 0);
        const bool isElement = storage.getArrayLength(owner.row) >= 0;
        owner.position = 0;
        while (!isElement && owner.position + 1 < storage.getRefCount(owner.row) &&
               storage.getRef(owner.row, owner.position) != row) {
            owner.position++;
        }
        owner.place = isElement ? -1 : owner.position;
        if (!isPassed(model, owner.row)) {
            break;
        }
        row = owner.row;
    }
    const int asClass = owner.row == 0 ? -1 : model.classByRow(owner.row);
    owner.type = owner.row == 0 ? -1 : asClass >= 0 ? -2 - asClass : model.classOf(owner.row);
    return owner;
}

std::string HeapOwner::text(const HeapModel& model) const {
    if (row == 0) {
        return "(no referrer)";
    }
    if (type < -1) {
        return "static " + model.classes[size_t(-2 - type)].name + "." +
               model.referenceName(row, position);
    }
    return place < 0 ? "element of " + model.classNameOf(row)
                     : model.classNameOf(row) + "." + model.referenceName(row, position);
}

} // namespace vdk
