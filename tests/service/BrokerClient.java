import javax.jms.*;
import org.apache.activemq.ActiveMQConnectionFactory;

/**
 * A peer that shares no code with ours: URI USER PASSWORD MODE DESTINATION ARGUMENT.
 *   listen  prints ARGUMENT text messages of a topic: "text: ..."
 *   serve   prints the next request of a queue and answers it with the bytes ARGUMENT (hex)
 *   call    sends the bytes ARGUMENT (hex) to a queue and prints the reply
 *   text    sends the text ARGUMENT to a queue
 * "ready" is printed when messages can come. A time limit of 20 seconds ends it all.
 */
public class BrokerClient {
  static byte[] bytes(String hex) {
    byte[] out = new byte[hex.length() / 2];
    for (int i = 0; i < out.length; i++)
      out[i] = (byte) Integer.parseInt(hex.substring(2 * i, 2 * i + 2), 16);
    return out;
  }

  static void print(Message message) throws JMSException {
    BytesMessage bytes = (BytesMessage) message;
    StringBuilder hex = new StringBuilder();
    for (long left = bytes.getBodyLength(); left > 0; left--)
      hex.append(String.format("%02x", bytes.readByte()));
    System.out.println("body=" + hex);
    System.out.println("correlation=" + message.getJMSCorrelationID() + ".");
    System.out.println("replyTo=" + message.getJMSReplyTo());
    System.out.println("persistent=" + (message.getJMSDeliveryMode() == DeliveryMode.PERSISTENT));
  }

  static BytesMessage make(Session session, String hex) throws JMSException {
    BytesMessage message = session.createBytesMessage();
    message.writeBytes(bytes(hex));
    return message;
  }

  public static void main(String[] args) throws Exception {
    Connection connection = new ActiveMQConnectionFactory(args[1], args[2], args[0]).createConnection();
    connection.start();
    Session session = connection.createSession(false, Session.AUTO_ACKNOWLEDGE);
    String argument = args[5];
    switch (args[3]) {
      case "listen": {
        MessageConsumer consumer = session.createConsumer(session.createTopic(args[4]));
        System.out.println("ready");
        for (int left = Integer.parseInt(argument); left > 0; left--) {
          TextMessage message = (TextMessage) consumer.receive(20000);
          System.out.println("text: " + (message == null ? null : message.getText()));
        }
        break;
      }
      case "serve": {
        MessageConsumer consumer = session.createConsumer(session.createQueue(args[4]));
        System.out.println("ready");
        Message request = consumer.receive(20000);
        print(request);
        BytesMessage reply = make(session, argument);
        reply.setJMSCorrelationID(request.getJMSCorrelationID());
        session.createProducer(request.getJMSReplyTo()).send(reply);
        break;
      }
      case "call": {
        Destination replies = session.createTemporaryQueue();
        BytesMessage request = make(session, argument);
        request.setJMSReplyTo(replies);
        request.setJMSCorrelationID("call-\u00e9-7");
        MessageConsumer consumer = session.createConsumer(replies);
        session.createProducer(session.createQueue(args[4])).send(request);
        print(consumer.receive(20000));
        break;
      }
      case "text":
        session.createProducer(session.createQueue(args[4])).send(session.createTextMessage(argument));
        System.out.println("sent");
        break;
      default:
        throw new IllegalArgumentException(args[3]);
    }
    connection.close();
  }
}
