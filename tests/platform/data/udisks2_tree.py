'''A recorded UDisks2 object tree for the drive-health tests.

The parameter "disk" picks what the boot disk is:
  ata-verified   a SATA disk whose SMART says it is fine
  ata-failing    the same disk saying it is failing
  ata-off        the same disk with SMART turned off
  nvme-warning   an NVMe disk with critical warnings, under an encrypted root
  no-smart       a virtual disk with no SMART at all
  lvm            a root on a logical volume, which UDisks2 ties to no drive
A USB backup stick is always plugged in and mounted at "/media/ana/My Backups".
'''

import dbus

import dbusmock

BUS_NAME = 'org.freedesktop.UDisks2'
MAIN_OBJ = '/org/freedesktop/UDisks2'
MAIN_IFACE = 'org.freedesktop.UDisks2.Manager'
SYSTEM_BUS = True
IS_OBJECT_MANAGER = True

BLOCK = 'org.freedesktop.UDisks2.Block'
FILESYSTEM = 'org.freedesktop.UDisks2.Filesystem'
DRIVE = 'org.freedesktop.UDisks2.Drive'
ATA = 'org.freedesktop.UDisks2.Drive.Ata'
NVME = 'org.freedesktop.UDisks2.NVMe.Controller'
NO_OBJECT = dbus.ObjectPath('/')


def mount_points(*points):
    return dbus.Array([dbus.ByteArray(p.encode() + b'\0') for p in points], signature='ay')


def add(mock, path, interfaces):
    first, *rest = interfaces.items()
    mock.AddObject(path, first[0], first[1], [])
    for interface, properties in rest:
        dbusmock.get_object(path).AddProperties(interface, properties)


def block(device, drive, uuid='', backing=NO_OBJECT):
    return {'Device': dbus.ByteArray(device.encode() + b'\0'),
            'Drive': dbus.ObjectPath(drive) if drive != '/' else NO_OBJECT,
            'IdUUID': dbus.String(uuid),
            'CryptoBackingDevice': backing}


def ata(failing=False, enabled=True):
    return {'SmartSupported': dbus.Boolean(True), 'SmartEnabled': dbus.Boolean(enabled),
            'SmartFailing': dbus.Boolean(failing), 'SmartUpdated': dbus.UInt64(1763900000),
            'SmartTemperature': dbus.Double(308.15)}


def load(mock, parameters):
    root = MAIN_OBJ
    disk = parameters.get('disk', 'ata-verified')
    drives = root + '/drives/'
    blocks = root + '/block_devices/'

    if disk.startswith('ata'):
        add(mock, drives + 'ST1000LM048', {
            DRIVE: {'Model': 'ST1000LM048', 'ConnectionBus': ''},
            ATA: ata(failing=disk == 'ata-failing', enabled=disk != 'ata-off')})
        add(mock, blocks + 'sda', {BLOCK: block('/dev/sda', drives + 'ST1000LM048')})
        add(mock, blocks + 'sda2', {
            BLOCK: block('/dev/sda2', drives + 'ST1000LM048', '0b7c2e1a-5d33-4f0e-9a51-6c1f0e2d7a11'),
            FILESYSTEM: {'MountPoints': mount_points('/')}})
    elif disk == 'nvme-warning':
        add(mock, drives + 'Samsung_SSD_980', {
            DRIVE: {'Model': 'Samsung SSD 980', 'ConnectionBus': ''},
            NVME: {'SmartCriticalWarning': dbus.Array(['spare', 'readonly'], signature='s'),
                   'SmartUpdated': dbus.UInt64(1763900000),
                   'SmartPowerOnHours': dbus.UInt64(12000)}})
        add(mock, blocks + 'nvme0n1p3', {
            BLOCK: block('/dev/nvme0n1p3', drives + 'Samsung_SSD_980',
                         '7d1e0c52-9a0b-4c84-8d0e-2f5b1c3a4e66')})
        add(mock, blocks + 'dm_2d0', {
            BLOCK: block('/dev/dm-0', '/', '', dbus.ObjectPath(blocks + 'nvme0n1p3')),
            FILESYSTEM: {'MountPoints': mount_points('/')}})
    elif disk == 'no-smart':
        add(mock, drives + 'VirtIO_Disk', {DRIVE: {'Model': '', 'ConnectionBus': ''}})
        add(mock, blocks + 'vda1', {
            BLOCK: block('/dev/vda1', drives + 'VirtIO_Disk'),
            FILESYSTEM: {'MountPoints': mount_points('/boot/efi', '/')}})
    elif disk == 'lvm':
        add(mock, blocks + 'dm_2d1', {
            BLOCK: block('/dev/dm-1', '/'),
            FILESYSTEM: {'MountPoints': mount_points('/')}})

    add(mock, drives + 'SanDisk_Ultra', {DRIVE: {'Model': 'Ultra', 'ConnectionBus': 'usb'}})
    add(mock, blocks + 'sdb1', {
        BLOCK: block('/dev/sdb1', drives + 'SanDisk_Ultra', '3F0A9C1E-77D2-4C59-A6B3-5D0E1F2A8B44'),
        FILESYSTEM: {'MountPoints': mount_points('/media/ana/My Backups')}})
    # A file system that is not mounted anywhere is not the backup volume.
    add(mock, blocks + 'sdb2', {
        BLOCK: block('/dev/sdb2', drives + 'SanDisk_Ultra', '5c6b0c2e-0000-4000-8000-000000000000'),
        FILESYSTEM: {'MountPoints': mount_points()}})
