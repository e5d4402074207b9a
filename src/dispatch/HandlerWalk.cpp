#include "dispatch/HandlerWalk.h"

#include <iterator>

namespace tarn
{

namespace
{

thread_local HandlerWalk* tInnermostWalk = nullptr;

} // namespace

HandlerWalk::HandlerWalk(HandlerList& list)
    : mList(list),
      mPosition(list.end()),
      mRemoved(false),
      mOuter(tInnermostWalk)
{
    tInnermostWalk = this;
}

HandlerWalk::~HandlerWalk()
{
    tInnermostWalk = mOuter;
}

bool HandlerWalk::Next()
{
    mPosition = mPosition == mList.end() ? mList.begin() : std::next(mPosition);
    mRemoved = false;
    return mPosition != mList.end();
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
    for (HandlerWalk* walk = tInnermostWalk; walk != nullptr; walk = walk->mOuter) {
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
