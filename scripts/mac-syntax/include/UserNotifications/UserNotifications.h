// The part of the user-notification framework the macOS-only sources use,
// declared as Apple declares it, for a syntax check against GNUstep's
// Foundation. Never part of a build.
#pragma once

#import <Foundation/Foundation.h>

typedef NSUInteger UNAuthorizationOptions;
enum {
    UNAuthorizationOptionBadge = 1 << 0,
    UNAuthorizationOptionSound = 1 << 1,
    UNAuthorizationOptionAlert = 1 << 2,
};
typedef NSInteger UNAuthorizationStatus;
enum {
    UNAuthorizationStatusNotDetermined = 0,
    UNAuthorizationStatusDenied,
    UNAuthorizationStatusAuthorized,
    UNAuthorizationStatusProvisional,
    UNAuthorizationStatusEphemeral,
};
typedef NSUInteger UNNotificationPresentationOptions;
enum {
    UNNotificationPresentationOptionBadge = 1 << 0,
    UNNotificationPresentationOptionSound = 1 << 1,
    UNNotificationPresentationOptionList = 1 << 3,
    UNNotificationPresentationOptionBanner = 1 << 4,
};

@interface UNNotificationSettings : NSObject
- (UNAuthorizationStatus)authorizationStatus;
@end

@interface UNNotificationContent : NSObject
@end

@interface UNMutableNotificationContent : UNNotificationContent
- (void)setTitle:(NSString*)title;
- (void)setBody:(NSString*)body;
@end

@interface UNNotificationTrigger : NSObject
@end

@interface UNNotificationRequest : NSObject
+ (instancetype)requestWithIdentifier:(NSString*)identifier
                              content:(UNNotificationContent*)content
                              trigger:(UNNotificationTrigger*)trigger;
@end

@interface UNNotification : NSObject
@end

@class UNUserNotificationCenter;

@protocol UNUserNotificationCenterDelegate <NSObject>
@optional
- (void)userNotificationCenter:(UNUserNotificationCenter*)center
       willPresentNotification:(UNNotification*)notification
         withCompletionHandler:
             (void (^)(UNNotificationPresentationOptions options))completionHandler;
@end

@interface UNUserNotificationCenter : NSObject
+ (UNUserNotificationCenter*)currentNotificationCenter;
- (void)setDelegate:(id<UNUserNotificationCenterDelegate>)delegate;
- (void)requestAuthorizationWithOptions:(UNAuthorizationOptions)options
                      completionHandler:(void (^)(BOOL granted, NSError* error))completionHandler;
- (void)getNotificationSettingsWithCompletionHandler:
    (void (^)(UNNotificationSettings* settings))completionHandler;
- (void)addNotificationRequest:(UNNotificationRequest*)request
         withCompletionHandler:(void (^)(NSError* error))completionHandler;
@end
