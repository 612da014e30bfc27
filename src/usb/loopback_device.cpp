#include "usb/loopback_device.h"

#include <array>
#include <bit>

#include "io/usb_link.h"

namespace {
// A two-byte field of a descriptor, low byte first on any machine.
constexpr __le16 little_endian(std::uint16_t value) {
    return std::bit_cast<__le16>(
        std::array{static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8)});
}

constexpr std::uint8_t manufacturer_id = 25;
constexpr std::uint8_t product_name_id = 45;
constexpr std::uint8_t serial_number_id = 101;
constexpr std::uint8_t function_id = 250;

constexpr usb_gadget_string texts[] = {
    {manufacturer_id, "Ardenvue"},
    {product_name_id, "Ardenvue USB"},
    {serial_number_id, "00000000"},
    {function_id, "The loopback"},
    {0, nullptr},
};

constexpr usb_gadget_strings strings = {.language = 0x0409, .strings = texts};

usb_device_descriptor device_descriptor = {
    .bLength = USB_DT_DEVICE_SIZE,
    .bDescriptorType = USB_DT_DEVICE,
    .bcdUSB = little_endian(0x0200),
    .bDeviceClass = USB_CLASS_VENDOR_SPEC,
    .bDeviceSubClass = 0,
    .bDeviceProtocol = 0,
    .bMaxPacketSize0 = 0,  // the controller's driver knows it
    .idVendor = 0,
    .idProduct = 0,
    .bcdDevice = 0,
    .iManufacturer = manufacturer_id,
    .iProduct = product_name_id,
    .iSerialNumber = serial_number_id,
    .bNumConfigurations = 1,
};

constexpr usb_config_descriptor configuration = {
    .bLength = USB_DT_CONFIG_SIZE,
    .bDescriptorType = USB_DT_CONFIG,
    .wTotalLength = 0,  // filled in on the way out
    .bNumInterfaces = 1,
    .bConfigurationValue = 2,
    .iConfiguration = function_id,
    .bmAttributes = USB_CONFIG_ATT_ONE | USB_CONFIG_ATT_SELFPOWER,
    .bMaxPower = 1,  // 2 mA
};

constexpr usb_interface_descriptor interface = {
    .bLength = USB_DT_INTERFACE_SIZE,
    .bDescriptorType = USB_DT_INTERFACE,
    .bInterfaceNumber = 0,
    .bAlternateSetting = 0,
    .bNumEndpoints = 2,
    .bInterfaceClass = USB_CLASS_VENDOR_SPEC,
    .bInterfaceSubClass = 0,
    .bInterfaceProtocol = 0,
    .iInterface = function_id,
};

constexpr usb_endpoint_descriptor bulk_endpoint(std::uint8_t address, std::uint16_t packet_size) {
    return {
        .bLength = USB_DT_ENDPOINT_SIZE,
        .bDescriptorType = USB_DT_ENDPOINT,
        .bEndpointAddress = address,
        .bmAttributes = USB_ENDPOINT_XFER_BULK,
        .wMaxPacketSize = little_endian(packet_size),
        .bInterval = 0,
        .bRefresh = 0,
        .bSynchAddress = 0,
    };
}

// Packet sizes of USB 2.0, 5.8.3.
constexpr std::uint16_t full_speed_packet = 64;
constexpr std::uint16_t high_speed_packet = usb_read_size;

constexpr usb_endpoint_descriptor full_speed_in =
    bulk_endpoint(USB_DIR_IN | in_endpoint_number, full_speed_packet);
constexpr usb_endpoint_descriptor full_speed_out =
    bulk_endpoint(USB_DIR_OUT | out_endpoint_number, full_speed_packet);
constexpr usb_endpoint_descriptor high_speed_in =
    bulk_endpoint(USB_DIR_IN | in_endpoint_number, high_speed_packet);
constexpr usb_endpoint_descriptor high_speed_out =
    bulk_endpoint(USB_DIR_OUT | out_endpoint_number, high_speed_packet);

template <typename Descriptor>
const usb_descriptor_header* header(const Descriptor& descriptor) {
    return reinterpret_cast<const usb_descriptor_header*>(&descriptor);
}

// The IN endpoint first: endpoints are enabled in this order, and the OUT endpoint's event starts the reader.
const usb_descriptor_header* const full_speed_list[] = {
    header(configuration), header(interface), header(full_speed_in), header(full_speed_out), nullptr};
const usb_descriptor_header* const high_speed_list[] = {
    header(configuration), header(interface), header(high_speed_in), header(high_speed_out), nullptr};

constexpr usb_gadget_device device = {.device = &device_descriptor,
                                      .config = full_speed_list,
                                      .hs_config = high_speed_list,
                                      .strings = &strings};
}  // namespace

const usb_gadget_device& loopback_device(std::uint16_t vendor_id, std::uint16_t product_id) {
    device_descriptor.idVendor = little_endian(vendor_id);
    device_descriptor.idProduct = little_endian(product_id);
    return device;
}
