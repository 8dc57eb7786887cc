#include "models/KRConversation.h"

KRConversation::KRConversation(const KRGroupUpdate& groupUpdate)
    : blockedUins(groupUpdate.blockedAll),
      groupID(groupUpdate.groupID),
      avatarUrl(groupUpdate.avatarUrl),
      name(groupUpdate.name),
      ownerUin(groupUpdate.ownerUin),
      addedUins(groupUpdate.addedUins),
      removedUins(groupUpdate.removedUins),
      unblockedUins(groupUpdate.unblockedAll) {}
