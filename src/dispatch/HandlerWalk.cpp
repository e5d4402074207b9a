#include "dispatch/HandlerWalk.h"

namespace tarn
{

HandlerWalk*& HandlerWalk::Innermost()
{
    static thread_local HandlerWalk* innermost = nullptr;
    return innermost;
}

bool HandlerWalk::Remove()
{
    if (mRemoved)
        return false;
    Erase(mList, mPosition);
    return true;
}

void HandlerWalk::RemoveEvery(HandlerList& list, const iTarnMessageHandler* handler)
{
    auto entry = list.begin();
    while (entry != list.end())
        entry = *entry == handler ? Erase(list, entry) : std::next(entry);
}

HandlerList::iterator HandlerWalk::Erase(HandlerList& list, HandlerList::iterator entry)
{
    for (HandlerWalk* walk = Innermost(); walk != nullptr; walk = walk->mOuter) {
        if (&walk->mList == &list && walk->mPosition == entry)
            walk->StepBackFrom(entry);
    }
    return list.erase(entry);
}

void HandlerWalk::StepBackFrom(HandlerList::iterator entry)
{
    mPosition = entry == mList.begin() ? mList.end() : std::prev(entry);
    mRemoved = true;
}

} // namespace tarn
