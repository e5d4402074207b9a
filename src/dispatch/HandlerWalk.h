#ifndef TARN_DISPATCH_HANDLER_WALK_H
#define TARN_DISPATCH_HANDLER_WALK_H

#include <iterator>
#include <list>

namespace tarn
{

class iTarnMessageHandler;

using HandlerList = std::list<iTarnMessageHandler*>;

/// A walk through a list of handlers that survives whatever the handlers do to the list meanwhile:
/// entries appended are reached, entries removed are not, and none is passed over or reached twice.
///
/// Entries of a list that a walk may be going through are removed by the functions here only. Those
/// can only run on the walking thread, inside a handler: the mutex of the list keeps others out. So
/// each thread keeps a chain of its walks, innermost first, and a removal looks through that chain
/// for walks that stand on the entry. Nothing is copied and nothing allocated.
class HandlerWalk
{
public:
    explicit HandlerWalk(HandlerList& list)
        : mList(list),
          mPosition(list.end()),
          mRemoved(false),
          mInnermost(Innermost()),
          mOuter(mInnermost)
    {
        mInnermost = this;
    }

    ~HandlerWalk() { mInnermost = mOuter; }
    HandlerWalk(const HandlerWalk&) = delete;
    HandlerWalk& operator=(const HandlerWalk&) = delete;

    /// Goes to the next entry, at first to the front; false at the end of the list.
    bool Next()
    {
        mPosition = mPosition == mList.end() ? mList.begin() : std::next(mPosition);
        mRemoved = false;
        return mPosition != mList.end();
    }

    /// The handler of the entry that the walk stands on.
    iTarnMessageHandler* Handler() const { return *mPosition; }

    /// Removes the entry that Next() went to; false when it has been removed already.
    bool Remove();

    /// Removes every entry of the handler.
    static void RemoveEvery(HandlerList& list, const iTarnMessageHandler* handler);

private:
    static HandlerWalk*& Innermost();
    static HandlerList::iterator Erase(HandlerList& list, HandlerList::iterator entry);
    void StepBackFrom(HandlerList::iterator entry);

    HandlerList& mList;
    /// The last entry reached, or the one before it once that is removed; end() is before the
    /// front.
    HandlerList::iterator mPosition;
    bool mRemoved;
    HandlerWalk*& mInnermost; ///< of this thread; looking it up again would cost a call
    HandlerWalk* const mOuter;
};

} // namespace tarn

#endif
